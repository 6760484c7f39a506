#include "support/ChildProcess.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace quon::test {
namespace {

constexpr int kPassed = 0;
constexpr int kFailed = 1;
constexpr int kSkipped = 77;
constexpr uid_t kNobody = 65534;

void must(int status, const char* what) {
  if (status != 0) throw std::system_error(errno, std::generic_category(), what);
}

/// A mount namespace costs a privilege, which an ordinary user has in a user namespace, where those are
/// allowed.
bool enterMountNamespace() {
  if (::unshare(CLONE_NEWNS) == 0) return true;
  const uid_t user = ::getuid();
  const gid_t group = ::getgid();
  if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  std::ofstream("/proc/self/uid_map") << "0 " << user << " 1\n";
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/gid_map") << "0 " << group << " 1\n";
  return ::getuid() == 0;
}

/// False when what is mounted from here on would show elsewhere. Below a root that is no mount point, a plain
/// chroot, nothing can be changed about that: it does not where no mount of the machine is shared.
bool keepMountsPrivate() {
  if (::mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) return true;
  if (errno != EINVAL) must(-1, "cannot keep mounts private");
  std::ifstream mounts("/proc/1/mountinfo");
  bool any = false;
  for (std::string line; std::getline(mounts, line); any = true) {
    if (line.find(" shared:") != std::string::npos) return false;
  }
  return any;
}

}  // namespace

void inChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0) << "cannot fork";
  if (child == 0) {
    try {
      body();
    } catch (const std::exception& failure) {
      ADD_FAILURE() << failure.what();
    }
    std::fflush(nullptr);
    ::_exit(testing::Test::HasFailure() ? kFailed : testing::Test::IsSkipped() ? kSkipped : kPassed);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) ASSERT_EQ(errno, EINTR);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kSkipped) GTEST_SKIP() << "for the reason above";
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == kPassed)
      << "the child ended with status " << status;
}

void inPrivateMounts(const std::function<void()>& body) {
  inChild([&] {
    if (!enterMountNamespace()) GTEST_SKIP() << "needs root, or a user namespace, to mount file systems";
    if (!keepMountsPrivate())
      GTEST_SKIP() << "mounts of a chroot cannot be kept private where mounts are shared";
    body();
  });
}

void asOrdinaryUser(const std::function<void()>& body) {
  inChild([&] {
    if (::getuid() == 0) {
      must(::setgroups(0, nullptr), "setgroups");
      must(::setresgid(kNobody, kNobody, kNobody), "setresgid");
      must(::setresuid(kNobody, kNobody, kNobody), "setresuid");
    }
    body();
  });
}

void refuseCall(long number, int error) {
  std::array<sock_filter, 4> program{
      {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
       BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1),
       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)),
       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
  const sock_fprog filter{program.size(), program.data()};
  must(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "cannot give up new privileges");
  must(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), "cannot filter system calls");
}

void mountTmpfs(const std::string& folder) {
  must(::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=0,nr_inodes=0,mode=0700"), "cannot mount a tmpfs");
}

void bindMount(const std::string& from, const std::string& to) {
  must(::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr), "cannot bind-mount");
}

std::size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all))) - 1;  // less the listing's own
}

}  // namespace quon::test
