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

extern "C" __attribute__((weak)) int __cxa_thread_atexit_impl(void (*at_end)(void *), void *object, void *program);

namespace {

bool is_set_up;
bool in_call;
const ka_test *answering;      /* the caller of the call in progress */
t_ARITHMETIC tests_arithmetic; /* during a call */
t_DLL_INFO64 no_block;         /* where there is no call: no arguments and no scratch area, in every layout */

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

void detach(void)
{
    dll_info = static_cast<t_DLL_INFO *>(static_cast<void *>(&no_block));
}

/* A function that ends the program ends it without dll_cleanup, as in a host process. */
void end_with_program(void)
{
    if (!in_call) ka_test_end_module();
}

/* Before all constructors of the program. In a host process dll_cleanup comes before the destructors of objects with
   static storage. Here it would not, by atexit alone, for the objects that calls have made; but what belongs to the
   main thread ends before all of them. */
__attribute__((constructor(101))) void begin(void)
{
    detach();
    if (__cxa_thread_atexit_impl != nullptr)
        __cxa_thread_atexit_impl([](void *) { end_with_program(); }, nullptr, &no_block);
}

void set_up(void)
{
    static bool ends_with_program;
    if (is_set_up) return;
    dll_setup();
    is_set_up = true;
    if (!ends_with_program) ends_with_program = atexit(end_with_program) == 0; /* where another thread ends it */
}

/* A function begins with the defaults of a signal handler, and the test goes on with what it had. */
int32_t perform(const ka_test *test)
{
    tests_arithmetic = arithmetic();
    renew_arithmetic();
    answering = test;
    in_call = true;
    const int32_t code = dll_main();
    in_call = false;
    resume_arithmetic(&tests_arithmetic);
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
    if (static_cast<void *>(dll_info) == test->block) detach();
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
    if (in_call) ka_test_refuse("a call inside of a call, or after one that was left by a jump or an exception");
    attach(test);
    set_up();
    place_call(test, function, arguments);
    const int32_t code = perform(test);
    take_results(test, arguments);
    store32(host::at(host::layout().argc), 0);
    return code;
}

void ka_test_end_module(void)
{
    if (!is_set_up) return;
    if (in_call) ka_test_refuse("the module is ended in a call");
    is_set_up = false;
    dll_info = nullptr;
    dll_cleanup();
    detach();
    release_leftovers();
    KaFunc = nullptr;
    KaFunc_arg_cnt = 0;
}

/* As the host has it: the value and the answer are in the block, and the function computes as before; the test, which
   answers, in its own way. */
int32_t dll_callback(int32_t value)
{
    if (!in_call) ka_test_refuse("dll_callback outside of a call, where no caller answers");
    const t_ARITHMETIC own = arithmetic();
    const ka_test_settings *settings = &answering->settings;
    store32(host::at(host::layout().cbval), value);
    resume_arithmetic(&tests_arithmetic);
    const int32_t answer = settings->callback != nullptr ? settings->callback(value, settings->user) : 0;
    store32(host::at(host::layout().retcode), answer);
    resume_arithmetic(&own);
    return answer;
}
