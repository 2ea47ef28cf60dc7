// Words shared between threads without locks.
//
// Every flag, counter and ring position that one thread writes and another
// reads lives in a plain field of a plain record (so records can be zeroed
// and laid out as documented) and is accessed through these two calls. They
// compile to ordinary loads and stores plus the barriers that make a ring's
// bytes visible before its counter moves; on 32-bit ARM they also keep the
// 64-bit ring counters from tearing.
#pragma once

template <class T>
inline T sharedLoad(const T &word) {
  // On 32-bit ARM a 64-bit word is atomic only through ldrexd/strexd on an
  // 8-byte aligned address; anything wider would fall back to a locked call.
  static_assert(__atomic_always_lock_free(sizeof(T), 0), "shared word must be lock-free");
  return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

template <class T, class V>
inline void sharedStore(T &word, V value) {
  static_assert(__atomic_always_lock_free(sizeof(T), 0), "shared word must be lock-free");
  __atomic_store_n(&word, static_cast<T>(value), __ATOMIC_RELEASE);
}
