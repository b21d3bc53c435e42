/* SPDX-License-Identifier: MIT
 *
 * Linked into modules that are built with the sanitizers and called by libkacall. The leak check of a process traces
 * it as it ends, and fails if its caller traces it too, or kills it during the check. Leaks of the call host itself
 * are found by the tests of the host, which no caller traces. */
const char *__lsan_default_options(void);

__attribute__((visibility("default"), used)) const char *__lsan_default_options(void)
{
    return "detect_leaks=0";
}
