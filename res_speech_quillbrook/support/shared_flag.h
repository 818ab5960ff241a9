// Plain variables that two threads share: flags and small values that one side sets and the other polls. They keep
// their plain type, because the plugin's record and the host's are binary contracts, and every access goes through
// here. Acquire and release: what was written before a flag was set is seen by whoever sees the flag.
#pragma once

template <typename T>
T shared_load(const T &flag) {
  return __atomic_load_n(&flag, __ATOMIC_ACQUIRE);
}

template <typename T>
void shared_store(T &flag, T value) {
  __atomic_store_n(&flag, value, __ATOMIC_RELEASE);
}

inline void shared_increment(int &counter) {
  __atomic_fetch_add(&counter, 1, __ATOMIC_ACQ_REL);
}

// Gives what is left.
inline int shared_decrement(int &counter) {
  return __atomic_sub_fetch(&counter, 1, __ATOMIC_ACQ_REL);
}

// Gives the former value.
template <typename T>
T shared_exchange(T &flag, T value) {
  return __atomic_exchange_n(&flag, value, __ATOMIC_ACQ_REL);
}

template <typename T>
void shared_set_bits(T &flags, T bits) {
  __atomic_fetch_or(&flags, bits, __ATOMIC_ACQ_REL);
}
