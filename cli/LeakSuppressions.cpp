// What the leak check of a sanitized build is to know. Fontconfig keeps its configuration until the process ends,
// with pointers that the check cannot follow: any program that loads one is reported.

extern "C" {

const char* __lsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier): the sanitizer's name
const char* __lsan_default_options();       // NOLINT(bugprone-reserved-identifier): likewise

const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier): likewise
  return "leak:libfontconfig\n";
}

const char* __lsan_default_options() {  // NOLINT(bugprone-reserved-identifier): likewise
  return "print_suppressions=0";
}
}
