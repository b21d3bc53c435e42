// SPDX-License-Identifier: MIT
//
// See rows.h: what compiler, linker and loader say of a module that is built for the first time. A test
// makes them say it.
#include "rows.h"

namespace {

constexpr const char *building = "message when a module is built";
constexpr const char *starting = "message when a module is started";

constexpr const char *tables_needed = "a module defines KaFuncList, KaArgList and KaCall, with C linkage in C++ "
                                      "(include ka/dll_module.h, which declares them), and exports them";

constexpr Explanation rows[] = {
    {building, NO_NUMBER, "",
     "undefined reference to `KaFuncList'\n"
     "undefined reference to `KaArgList'\n"
     "undefined reference to `KaCall'\n"
     "undefined symbol: KaFuncList\n"
     "undefined symbol: KaArgList\n"
     "undefined symbol: KaCall",
     "the module lacks a part that the call host asks for",
     "it is not defined, is static, has another name, or is a C++ function without extern \"C\"", tables_needed},
    {building, NO_NUMBER, "", "undefined reference to `main'\nundefined symbol: main",
     "nothing provides the program's main", "-lkahost is missing, or comes before the sources under -Wl,--as-needed",
     "link with -lkahost after the sources; main is in it, a module has none of its own"},
    {building, NO_NUMBER, "", "multiple definition of `%s'\nduplicate symbol: %s",
     "two parts of the program define one name",
     "KA_MODULE is in two files; or libkahost.a is linked in, and the module uses a name of the call host's "
     "interface",
     "one KA_MODULE for a module; give the function another name, or link with -lkahost, beside which any name will "
     "do"},
    {building, NO_NUMBER, "", "cannot find -lka%s\nunable to find library -lka%s",
     "the linker does not find that library in the word size of the module or program",
     "-L is missing, or names another folder, or that of the other word size",
     "on Debian: apt-get install libkahost-dev or libkacall-dev, for -m32 lib32kahost-dev or lib32kacall-dev. "
     "Elsewhere give the folder by -L and "
     "-Wl,-rpath: under ka --prefix it is lib, for -m32 lib32; in the source tree build/lib64, for -m32 build/lib"},
    {building, NO_NUMBER, "", "undefined reference to `ka_%s'\nundefined symbol: ka_%s",
     "the program lacks libkacall, or a unit test libkahost_test",
     "-lkacall, or -lkahost_test, is missing, or comes before the sources", "give it after the sources"},
    {building, NO_NUMBER, "",
     "skipping incompatible %s when searching for -lkahost\n"
     "i386 architecture of input file %s is incompatible with i386:x86-64 output\n"
     "i386:x86-64 architecture of input file %s is incompatible with i386 output\n"
     "error adding symbols: file in wrong format\n"
     "file in wrong format",
     "parts of 32 and of 64 bits were given to one program",
     "-m32 was given at compiling and not at linking, or the other way round; or -L names the folder of the other "
     "word size",
     "give -m32 (with -msse2 -mfpmath=sse) to every compiler and linker call of a module, or to none; see ka explain "
     "'cannot find -lkahost' for the folders"},
    {building, NO_NUMBER, "",
     "skipping incompatible %s when searching for -lgcc\n"
     "cannot find -lgcc%s\n"
     "cannot find crt1.o%s\n"
     "cannot find Scrt1.o%s\n"
     "cannot find crti.o%s\n"
     "fatal error: bits/libc-header-start.h: No such file or directory\n"
     "fatal error: bits/c++config.h: No such file or directory\n"
     "fatal error: sys/cdefs.h: No such file or directory\n"
     "fatal error: gnu/stubs-32.h: No such file or directory",
     "the compiler has no headers or libraries of 32 bits, which -m32 asks for",
     "its multilib package is not installed",
     "on Debian: apt-get install gcc-multilib g++-multilib; or build the module without -m32, for 64 bits"},
    {building, NO_NUMBER, "",
     "fatal error: asm/errno.h: No such file or directory\n"
     "fatal error: asm/%s: No such file or directory",
     "the compiler does not find the kernel's headers, which -m32 looks for in /usr/include/asm",
     "gcc-multilib is not installed; installing a cross compiler removes it, since Debian keeps only one of them",
     "give -idirafter /usr/include/x86_64-linux-gnu with -m32, or install gcc-multilib; or build without -m32, for "
     "64 "
     "bits"},
    {building, NO_NUMBER, "",
     "skipping incompatible %s when searching for -lstdc++\n"
     "cannot find -lstdc++%s\n"
     "unable to find library -lstdc++",
     "the C++ library of the module's word size is not there",
     "with -m32: g++-multilib is not installed; without: g++ is not",
     "on Debian: apt-get install g++-multilib, or g++; a module in C needs no C++ library: link it with cc"},
    {building, NO_NUMBER, "", "fatal error: ka/%s: No such file or directory",
     "the compiler does not find kahost's headers",
     "they are not installed; or -I is missing, or names another folder",
     "on Debian: apt-get install libkahost-dev, for callers libkacall-dev; elsewhere give -I$(ka --prefix)/include"},
    {"message of gdb or strace", NO_NUMBER, "", "ptrace%s: Operation not permitted",
     "the system does not let another process examine the host",
     "ka call traces the hosts that it starts, and a process has one tracer; or /proc/sys/kernel/yama/ptrace_scope "
     "is not 0",
     "ka debug MODULE FUNCTION, or ka call --no-inspect; with ptrace_scope 1 let gdb start the host, or be root"},
    {starting, 127, "", "error while loading shared libraries: libkahost.so%s: cannot open shared object file",
     "the module does not find the call host", "it was linked without -Wl,-rpath, or the build was moved",
     "link with -Wl,-rpath,FOLDER, or set LD_LIBRARY_PATH; ka check MODULE shows where it looks"},
    {starting, 127, "",
     "error while loading shared libraries: %s: wrong ELF class: ELFCLASS64\n"
     "error while loading shared libraries: %s: wrong ELF class: ELFCLASS32",
     "of a library only the form of the other word size was found: 64 or 32 bits, as the message says",
     "LD_LIBRARY_PATH or RUNPATH names its folder", "give the folder of the library that has the module's word size"},
};

} // namespace

std::span<const Explanation> build_rows()
{
    return rows;
}
