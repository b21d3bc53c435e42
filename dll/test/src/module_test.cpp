/* SPDX-License-Identifier: MIT
 *
 * The caller and the process of a unit test, in the place of the host's own: builds the block of a call in ordinary
 * memory, lets the call driver perform it, and takes the results out. The hooks, the call-back and the scratch area
 * are here, too. */
#include <stdlib.h>
#include <string.h>

#include "dll/src/arithmetic.h"
#include "dll/src/block.h"
#include "dll/src/call.h"
#include "ka/dll_module.h"
#include "test_block.h"

/* A module's own hooks take the place of these. */
__attribute__((weak)) void dll_setup(void) {}
__attribute__((weak)) void dll_cleanup(void) {}

namespace {

bool is_set_up;
bool in_call;
const ka_test *answering; /* the caller of the call in progress */

/* ---- Callers --------------------------------------------------------------------------------------------------- */

void check_settings(const ka_test_settings *settings)
{
    if (settings->layout != 0 && settings->layout != 32 && settings->layout != 64)
        ka_test_refuse("layout is neither 32 nor 64");
    if (settings->scratch_bytes < 0 || settings->segment_bytes - VALUES_START < settings->scratch_bytes)
        ka_test_refuse("segment_bytes is too small for scratch_bytes");
}

ka_test *usual_caller(void)
{
    static ka_test *usual;
    if (usual == nullptr) usual = ka_test_open(nullptr);
    return usual;
}

ka_test *this_or_usual(ka_test *test)
{
    return test != nullptr ? test : usual_caller();
}

/* ---- The module's life ----------------------------------------------------------------------------------------- */

void attach(ka_test *test)
{
    check_settings(&test->settings);
    dll_info = static_cast<t_DLL_INFO *>(static_cast<void *>(test->block));
    dll_compat = test->settings.layout == 64 ? 64 : 0;
    host::segment_bytes = static_cast<size_t>(test->segment_bytes);
    write_header(test);
}

void set_up(void)
{
    static bool ends_with_program;
    if (is_set_up) return;
    is_set_up = true;
    dll_setup();
    if (!ends_with_program) ends_with_program = atexit(ka_test_end_module) == 0;
}

/* A function begins with the defaults of a signal handler, and the test goes on with what it had. */
int32_t perform(const ka_test *test)
{
    const t_ARITHMETIC own = arithmetic();
    renew_arithmetic();
    answering = test;
    in_call = true;
    const int32_t code = dll_main();
    in_call = false;
    set_arithmetic(&own);
    return code;
}

} // namespace

void ka_test_settings_init(ka_test_settings *settings)
{
    *settings = {32, 1 << 20, 1 << 16, nullptr, nullptr};
}

ka_test *ka_test_open(const ka_test_settings *settings)
{
    ka_test *test = static_cast<ka_test *>(calloc(1, sizeof *test));
    if (test == nullptr) ka_test_refuse("no memory");
    ka_test_settings_init(&test->settings);
    if (settings != nullptr) test->settings = *settings;
    check_settings(&test->settings);
    test->segment_bytes = test->settings.segment_bytes;
    test->scratch_bytes = test->settings.scratch_bytes;
    create_block(test);
    return test;
}

void ka_test_close(ka_test *test)
{
    if (test == nullptr) return;
    if (in_call) ka_test_refuse("a caller is closed in a call");
    if (static_cast<void *>(dll_info) == test->block) dll_info = nullptr;
    free(test->block);
    free(test);
}

ka_test_settings *ka_test_settings_of(ka_test *test)
{
    return &this_or_usual(test)->settings;
}

void *ka_test_scratch(ka_test *test)
{
    test = this_or_usual(test);
    return test->scratch_bytes > 0 ? test->block + scratch_offset(test) : nullptr;
}

int32_t ka_test_send(ka_test *test, const char *function, ka_test_argument *arguments)
{
    test = this_or_usual(test);
    if (in_call) ka_test_refuse("a call inside of a call");
    attach(test);
    set_up();
    place_call(test, function, arguments);
    const int32_t code = perform(test);
    take_results(test, arguments);
    return code;
}

void ka_test_end_module(void)
{
    if (!is_set_up) return;
    is_set_up = false;
    release_leftovers();
    KaFunc = nullptr;
    dll_info = nullptr;
    dll_cleanup();
}

/* As the host has it: the value and the answer are in the block, and the function computes as before. */
int32_t dll_callback(int32_t value)
{
    if (!in_call) ka_test_refuse("dll_callback outside of a call, where no caller answers");
    const t_ARITHMETIC own = arithmetic();
    const ka_test_settings *settings = &answering->settings;
    store32(host::at(host::layout().cbval), value);
    const int32_t answer = settings->callback != nullptr ? settings->callback(value, settings->user) : 0;
    store32(host::at(host::layout().retcode), answer);
    set_arithmetic(&own);
    return answer;
}
