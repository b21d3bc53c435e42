/* SPDX-License-Identifier: MIT
 *
 * The call driver: finds the function, matches and converts its arguments, invokes it, gives results back. Runs
 * inside the handler of SIGUSR2 on the main thread; the module's function may wait for a call-back, but the driver is
 * not entered again before it returns. An untraced call allocates nothing but the converted buffers. */
#include "call.h"

#include <string.h>

#include "arithmetic.h"
#include "block.h"
#include "trace.h"

namespace {

bool has_name(const t_DLL_FUNC *function, int32_t length, const char *characters)
{
    const size_t own = strlen(function->name);
    return static_cast<uint32_t>(length) == own && memcmp(function->name, characters, own) == 0;
}

/* Points KaFunc at the first function of that name, or at the end of the table. */
int32_t look_up(const t_DLL_ARG &name)
{
    const int32_t length = load32(name.ptr);
    const char *characters = static_cast<const char *>(name.ptr) + sizeof length;
    for (KaFunc = KaFuncList; KaFunc->name != nullptr; KaFunc++) {
        if (has_name(KaFunc, length, characters)) return KA_OK;
    }
    trace_undefined(length, characters);
    return KA_NO_FUNCTION;
}

int32_t find_function(void)
{
    const int32_t argc = u_get_argc();
    if (argc <= 0) {
        trace_no_name();
        return KA_WRONG_COUNT;
    }
    if (argc > DLL_MAX_ARGC) {
        trace_too_many();
        return KA_TOO_MANY_ARGS;
    }
    const t_DLL_ARG name = u_get_arg(0);
    /* KEPT: one code for two faults, 8, which an argument of a wrong value type has too; 9 is the code of three: no
       name, too many arguments, too few. Test: Refusals.name_that_is_no_string_is_8. */
    if (name.type != DLL_STRING) {
        trace_name_type();
        return KA_WRONG_TYPE;
    }
    const int32_t code = look_up(name);
    if (code == KA_OK) KaFunc_arg_cnt = argc - 1;
    return code;
}

int32_t convert_argument(const t_DLL_PROTO *proto, int32_t n)
{
    const t_DLL_ARG arg = u_get_arg(n);
    trace_argument(proto, arg);
    if (!wire::is_kind(proto->type)) return KA_BAD_PROTOTYPE;
    const t_KIND &kind = wire::kinds[proto->type];
    /* KEPT: too few elements are found before a wrong value type: two strings for an IntArray of 3 give 17, not 8.
       Test: Refusals.too_few_elements_come_before_the_wrong_type. */
    if (kind.array && (arg.elcnt < 0 || proto->min_elcnt > arg.elcnt)) return KA_TOO_FEW_ELEMENTS;
    const int32_t code = wire::conversion(kind, arg.type);
    return code == CV_NONE ? KA_WRONG_TYPE : convert(code, arg, n - 1);
}

int32_t extra_argument(void)
{
    trace_extra();
    return KA_WRONG_COUNT;
}

int32_t convert_arguments(void)
{
    int32_t argi = 0;
    for (int32_t n = 1; n <= KaFunc_arg_cnt; n++) {
        if (argi >= KaFunc->arg_cnt) return extra_argument();
        const int32_t code = convert_argument(prototype(argi), n);
        if (code != KA_OK) return code;
        argi = next_prototype(argi);
    }
    /* A VarArg that matched nothing is not missing. */
    if (argi == KaFunc->arg_cnt || wire::takes_all_further(prototype(argi)->type)) return KA_OK;
    trace_wrong_count(argi);
    return KA_WRONG_COUNT;
}

/* A kind that the function changed to nonsense during the call is left to give_back. */
bool gives_back(int32_t kind)
{
    return !wire::is_kind(kind) || wire::kinds[kind].gives_back;
}

int32_t give_back_argument(const t_DLL_PROTO *proto, int32_t n)
{
    const t_DLL_ARG arg = u_get_arg(n);
    if (arg.ref != 0) {
        if (gives_back(proto->type)) {
            trace_value_after(proto, arg, n - 1);
            const int32_t code = give_back(arg, n - 1);
            if (code != KA_OK) return code;
        } else {
            u_unref_arg(n); /* so the caller copies nothing back */
        }
    }
    release_slot(n - 1);
    return KA_OK;
}

int32_t give_back_results(void)
{
    int32_t argi = 0;
    for (int32_t n = 1; n <= KaFunc_arg_cnt; n++) {
        const int32_t code = give_back_argument(prototype(argi), n);
        if (code != KA_OK) return code;
        argi = next_prototype(argi);
    }
    return KA_OK;
}

} // namespace

int32_t dll_main(void)
{
    trace_block();
    int32_t code = find_function();
    if (code != KA_OK) return code;
    trace_function();
    release_leftovers();
    code = convert_arguments();
    if (code != KA_OK) return code; /* what was converted is released by the next call */
    trace_call();
    const int32_t result = KaCall(static_cast<int32_t>(KaFunc - KaFuncList), KaAv);
    /* However the function has left it: its results are converted as ever. Its next call begins with the defaults. */
    reset_arithmetic();
    trace_result(result);
    code = give_back_results();
    return code == KA_OK ? result : code;
}
