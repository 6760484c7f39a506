#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

namespace quon {

/// A base for objects that count their own references: one word, no control block. Any thread may copy and
/// drop references.
template <typename Derived>
using RefCounted = boost::intrusive_ref_counter<Derived, boost::thread_safe_counter>;

/// Shared ownership of a RefCounted object, which the last reference deletes.
template <typename T>
using RefPtr = boost::intrusive_ptr<T>;

}  // namespace quon
