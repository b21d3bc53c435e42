// SPDX-License-Identifier: MIT
//
// Hosts for the tests of the caller's side: opened and closed with the test, in either layout, and looked at from
// outside through /proc.
#ifndef TESTS_CALLER_HOSTS_H
#define TESTS_CALLER_HOSTS_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <sys/types.h>
#include <tuple>
#include <vector>

#include "ka/caller.h"
#include "ka/dll_block.h"
#include "ka/dll_codes.h"
#include "module_bits.h"

inline std::string module_path(const std::string &name)
{
    return module_folder(CALLER_MODULES) + "/caller_module_" + name;
}

inline const std::string tasks_module = module_path("tasks");
inline const std::string no_loader_module = module_path("no_loader");
inline const std::string no_library_module = module_path("no_library");

// A host that lives as long as this record. The test fails when the module does not start.
struct Host {
    explicit Host(const std::function<void(ka_options &)> &adjust = {}, const std::string &module = tasks_module);
    ~Host();
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;
    operator ka_host *() const { return host; }
    ka_host *host = nullptr;
};

ka_options default_options();

// Calls what was built; the function's return code. The test fails when there is none.
int32_t call(ka_host *host);

// Class of the error of a call that cannot succeed.
int32_t call_fails(ka_host *host);

std::string error_text(ka_host *host);
std::vector<int32_t> integers(ka_host *host, int32_t argument, int32_t count);
std::vector<std::string> reals(ka_host *host, int32_t argument, int32_t count);
std::string string(ka_host *host, int32_t argument, int32_t element);

// A function with one integer, called; its return code.
int32_t call_with(ka_host *host, const char *function, int32_t number);

// True once the process is gone, or but a zombie of somebody else; false after ten seconds.
bool ends(pid_t pid);

// True once the segment, or every segment that the process created, is gone; false after ten seconds. The kernel
// frees them with the last user's memory, which somebody who looks into /proc can hold for a moment longer.
bool segment_vanishes(int segment_id);
bool segments_of_creator_vanish(pid_t pid);

// How many processes use a segment; -1 when there is none of that number.
int users_of(int segment_id);

// The segment that a host was started with.
int segment_of(pid_t pid);

// A line of /proc/PID/status, as a mask.
uint64_t signal_mask(pid_t pid, const std::string &field);
uint64_t signal_bit(int signal);

// True once the host has taken every signal and waits for a call.
bool becomes_idle(pid_t pid);

// True once the host sleeps in the module's set-up.
bool is_setting_up(pid_t pid);

// True once the host sleeps in a function of the module.
bool is_in_function(pid_t pid);

// Descriptors that this process has open.
int open_descriptors();

// The library's own thread lives from the first start to the end of the program: this makes sure that it is there.
void start_library_thread();

// A file that is removed with the record.
struct File {
    File(const std::string &content, int mode);
    ~File();
    std::string path;
};

// Tests that depend on the layout.
class LayoutTest : public testing::Test {
protected:
    virtual int32_t layout_in_use() const = 0;
    std::function<void(ka_options &)> layout() const;
    int32_t offset_of_cbval() const;
    int32_t offset_of_retcode() const;
    int32_t offset_of_descriptors() const;
    int32_t descriptor_size() const;
};

// Every test of a suite derived from this runs in both layouts.
class BothLayouts : public LayoutTest, public testing::WithParamInterface<int32_t> {
    int32_t layout_in_use() const override { return GetParam(); }
};

// Every test of a suite derived from this runs in both layouts and in both ways of waiting.
class EveryWay : public LayoutTest, public testing::WithParamInterface<std::tuple<int32_t, int32_t>> {
protected:
    std::function<void(ka_options &)> layout() const;

private:
    int32_t layout_in_use() const override { return std::get<0>(GetParam()); }
};

#define IN_BOTH_LAYOUTS(suite)                                           \
    INSTANTIATE_TEST_SUITE_P(                                            \
        Layouts, suite, testing::Values(KA_LAYOUT_NATIVE, KA_LAYOUT_64), \
        [](const auto &layout_info) { return layout_info.param == KA_LAYOUT_64 ? "layout_64" : "native"; })

#define IN_EVERY_WAY(suite)                                                                              \
    INSTANTIATE_TEST_SUITE_P(Ways, suite,                                                                \
                             testing::Combine(testing::Values(KA_LAYOUT_NATIVE, KA_LAYOUT_64),           \
                                              testing::Values(KA_WAIT_SAFE, KA_WAIT_FAST)),              \
                             [](const auto &way) {                                                       \
                                 return std::string(std::get<0>(way.param) == KA_LAYOUT_64 ? "layout_64" \
                                                                                           : "native") + \
                                        (std::get<1>(way.param) == KA_WAIT_SAFE ? "_safe" : "_fast");    \
                             })

#endif
