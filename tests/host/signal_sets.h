// SPDX-License-Identifier: MIT
//
// The signals that a host blocks: between calls, in a call, in a call-back, and in the rest of the call after it.
#ifndef TESTS_HOST_SIGNAL_SETS_H
#define TESTS_HOST_SIGNAL_SETS_H

#include <csignal>
#include <set>

namespace harness {

using Set = std::set<int>;

inline const Set while_idle = {SIGINT, SIGUSR1, SIGIO, SIGALRM};
inline const Set in_call = {SIGINT, SIGUSR1, SIGUSR2, SIGIO, SIGALRM};
inline const Set in_callback = {SIGINT, SIGIO, SIGALRM};
inline const Set after_callback = {SIGINT, SIGUSR2, SIGIO, SIGALRM};

} // namespace harness

#endif
