// SPDX-License-Identifier: MIT
//
// A module whose functions do what the test asks for, see script.h. DRIVER_LEVEL in the environment is the trace
// level from the start on.
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "driver/modules/hooks.h"
#include "driver/modules/say.h"
#include "driver/script.h"
#include "driver/tables.h"
#include "ka/dll_host.h"
#include "ka/kastring.h"

t_DLL_FUNC KaFuncList[std::size(driver::functions)];
t_DLL_PROTO KaArgList[std::size(driver::functions) * driver::row_prototypes];

namespace driver {
namespace {

t_DLL_PROTO *prototype(int32_t index, int32_t position)
{
    return &KaArgList[index * row_prototypes + position];
}

// The kind by which argument n (the first is 1) was matched.
int32_t kind_of(int32_t index, int32_t n)
{
    int32_t position = 0;
    while (position < n - 1 && prototype(index, position)->type != KA_VARARG)
        position++;
    return prototype(index, position)->type;
}

void see_all(int32_t index, void **argv)
{
    const int32_t argc = u_get_argc() - 1;
    say("%s #%d\n", KaFuncList[index].name, index);
    for (int32_t n = 1; n <= argc; n++) {
        say("%d: ", n);
        see(kind_of(index, n), u_get_arg(n), argv[n - 1]);
    }
    for (int32_t slot = argc; slot < DLL_MAX_ARGS; slot++) {
        if (argv[slot] != nullptr) say("slot %d is not null\n", slot);
    }
}

void edit_all(int32_t index, void **argv)
{
    for (int32_t n = 1; n < u_get_argc(); n++)
        edit(kind_of(index, n), u_get_arg(n), argv[n - 1]);
}

void tell(const t_DLL_ARGINFO *info)
{
    if (info == nullptr)
        say("no argument\n");
    else
        say("kind %d, name %s, elcnt %d\n", info->type, info->name, info->elcnt);
}

void tell_of_null(void **slot)
{
    void *const kept = *slot;
    *slot = nullptr;
    tell(KaArgInfo(0));
    *slot = kept;
}

void tell_overwritten(int32_t x, int32_t y)
{
    const t_DLL_ARGINFO *const first = KaArgInfo(static_cast<uintptr_t>(x));
    const t_DLL_ARGINFO *const second = KaArgInfo(static_cast<uintptr_t>(y));
    tell(first);
    if (first != second) say("two records\n");
}

void tell_function()
{
    const t_DLL_FUNCINFO *const info = KaFuncInfo();
    if (info == nullptr)
        say("no function\n");
    else
        say("name %s, argc %d\n", info->name == nullptr ? "(null)" : info->name, info->argc);
    if (info != KaFuncInfo()) say("two records\n");
}

void keep_errors()
{
    static char room[1 << 16];
    setvbuf(stderr, room, _IOFBF, sizeof room);
}

KaStr own_text(int32_t length)
{
    static char text[1 << 17];
    memset(text, 'm', static_cast<size_t>(length));
    return {length, length, text};
}

// Steps that change what the host or the caller owns.
void change(const Step &step, int32_t index, void **argv)
{
    char *const segment = static_cast<char *>(u_get_baseptr());
    switch (step.op) {
    case LEVEL:
        dll_debug = step.a;
        break;
    case POKE:
        memcpy(segment + step.a, &step.b, sizeof step.b);
        break;
    case RETYPE:
        prototype(index, step.a)->type = step.b;
        break;
    case UNREF:
        say("unref %d\n", u_unref_arg(step.a));
        break;
    case SET_POINTER:
        argv[step.a] = reinterpret_cast<void *>(static_cast<uintptr_t>(step.b));
        break;
    case BUFFER:
        keep_errors();
        break;
    case SET_DOUBLE:
        static_cast<double *>(argv[step.a])[step.b] = step.number;
        break;
    case SET_LENGTH:
        static_cast<KaStr *>(argv[step.a])[step.b].len = step.c;
        break;
    case SET_TEXT:
        say("str2KaStr %d\n", str2KaStr(step.text, &static_cast<KaStr *>(argv[step.a])[step.b]));
        break;
    case OWN_TEXT:
        static_cast<KaStr *>(argv[step.a])[step.b] = own_text(step.c);
        break;
    default:
        break;
    }
}

void tell(const Step &step, void **argv)
{
    switch (step.op) {
    case CALL_BACK:
        say("answer %d\n", dll_callback(step.a));
        break;
    case ROOM:
        say("room %d\n", static_cast<int>(malloc_usable_size(argv[step.a])));
        break;
    case FUNCTION_INFO:
        tell_function();
        break;
    case INFO_AT:
        tell(KaArgInfo(static_cast<uintptr_t>(step.a)));
        break;
    case INFO_OF:
        tell(KaArgInfo(reinterpret_cast<uintptr_t>(argv[step.a]) + static_cast<uintptr_t>(step.b)));
        break;
    case INFO_NULL:
        tell_of_null(&argv[step.a]);
        break;
    case SAME_INFO:
        tell_overwritten(step.a, step.b);
        break;
    case DUMP:
        dump(step.a, argv[0], step.b);
        break;
    default:
        break;
    }
}

Script *script()
{
    void *const place = static_cast<char *>(u_get_baseptr()) + script_offset;
    return static_cast<Script *>(place);
}

} // namespace
} // namespace driver

using namespace driver;

int32_t KaCall(int32_t index, void **argv)
{
    int32_t code = 0;
    start_saying();
    for (int32_t i = 0; i < script()->count; i++) {
        const Step &step = script()->steps[i];
        if (step.op == SEE)
            see_all(index, argv);
        else if (step.op == EDIT)
            edit_all(index, argv);
        else if (step.op == RETURN)
            code = step.a;
        change(step, index, argv);
        tell(step, argv);
    }
    return code;
}

void dll_setup(void)
{
    static int no_use = 0;
    for (size_t row = 0; row < std::size(functions); row++) {
        const Function &function = functions[row];
        KaFuncList[row] = {function.name, static_cast<int32_t>(row) * row_prototypes, function.count, &no_use};
        memcpy(prototype(static_cast<int32_t>(row), 0), function.prototypes, sizeof function.prototypes);
    }
    const char *level = getenv("DRIVER_LEVEL");
    if (level != nullptr) dll_debug = static_cast<int32_t>(strtol(level, nullptr, 10));
    if (getenv("DRIVER_TELL_EARLY") != nullptr) {
        tell_function();
        tell(KaArgInfo(0));
    }
    at_start();
}

void dll_cleanup(void)
{
    at_end();
}
