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
    {building, NO_NUMBER, "",
     "Package ka%s was not found in the pkg-config search path\n"
     "Package 'ka%s', required by %s, not found\n"
     "No package 'ka%s' found",
     "pkg-config does not find the file of kahost, kahost32 or kacall",
     "its package is not installed, or kahost is under a prefix of its own",
     "on Debian: apt-get install libkahost-dev, for kahost32 lib32kahost-dev, for kacall libkacall-dev; elsewhere "
     "PKG_CONFIG_PATH=$(ka --prefix)/lib/pkgconfig"},
    {building, NO_NUMBER, "",
     "too few names: there is one for each parameter\n"
     "too many names: there is one for each parameter",
     "the names after the function are not as many as its parameters",
     "one was forgotten, or the parameters have changed; the result has no name among them",
     "KA_FN(add, \"a\", \"b\"): one name for each parameter, in their order; ka::result(\"name\") is for the result"},
    {building, NO_NUMBER, "", "a name twice; that of the result is \"result\", or what ka::result says",
     "two arguments of a function have one name", "a name is repeated, or an argument is called \"result\", too",
     "give one another name, the result by ka::result(\"name\")"},
    {building, NO_NUMBER, "", "a name is a literal, %s\nit needs a name: KA_FN_AS(%s",
     "a name in KA_FN is not a text in quotes, or the function is a template's",
     "a name is a variable or a number; or KA_FN cannot take the name from what it was given",
     "write names in quotes; KA_FN_AS(\"name\", f<double>, \"a\") names the function itself"},
    {building, NO_NUMBER, "", "it has no result that ka::result names",
     "ka::result stands in the line of a function without a result",
     "the function returns void or ka::code, or its line is KA_FN_STATUS",
     "leave ka::result out, or return the result"},
    {building, NO_NUMBER, "",
     "an integer parameter is an std::int32_t\n"
     "a floating parameter is a double, or a ka::decimal\n"
     "a text parameter is an std::string_view or const char *, or a ka::string that is changed\n"
     "instead of t_DECIMAL a parameter is a ka::decimal\n"
     "instead of a pointer a parameter is an std::int32_t &, a double & or a ka::array\n"
     "std::string_view, ka::string, ka::array and ka::args are parameters by value\n"
     "elements of a ka::array are std::int32_t, double, ka::decimal, ka::string or std::string_view\n"
     "a parameter is an std::int32_t, double, ka::decimal, const char *, std::string_view, ka::string, ka::array or "
     "ka::args",
     "a parameter of the function has a type that callers have no kind for",
     "it is another number type, a std::string, a pointer or a type of the module's own",
     "change the parameter to the type that the message names, or declare a small function that converts"},
    {building, NO_NUMBER, "",
     "the least number of elements of a ka::array is 0 or more\n"
     "a least number of elements is 0 or more\n"
     "only an array has a least number of elements",
     "the least number of elements of a parameter is wrong", "it is negative, or stands beside what is no array",
     "ka::array<double, 2>, in C (real_array, values, 2); 0 lets an array be empty"},
    {building, NO_NUMBER, "",
     "ka::args is the last parameter\n"
     "args is the last parameter\n"
     "no result can come after ka::args",
     "something comes after the parameter for any further arguments",
     "it takes all arguments from there on, so that none is left for another parameter or a result",
     "make it the last one; give a result back through a parameter before it, as double & or std::int32_t &"},
    {building, NO_NUMBER, "",
     "it returns void, ka::code, std::int32_t, double, ka::decimal, std::string, std::string_view or const char *\n"
     "a status is an std::int32_t",
     "the function returns a type that callers have no kind for",
     "it returns another number type, bool, a reference or a pointer; or KA_FN_STATUS has a function without a "
     "status",
     "return one of the types that the message names"},
    {building, NO_NUMBER, "",
     "no call has more than 50 arguments, of which a result is one\n"
     "has more than 50 parameters",
     "the function has more parameters than a call has arguments", "the limit is 50, with the result",
     "take an array, or ka::args, in C args"},
    {building, NO_NUMBER, "", "not a function by itself; a member function is none",
     "what KA_FN was given cannot be called without more",
     "it is a member function, a function object, a lambda with captures, or has C's ... as its parameters",
     "declare an ordinary function, or a static member function, that calls it"},
    {building, NO_NUMBER, "",
     "unable to deduce '%s' from '& %s'\n"
     "unable to deduce ‘%s’ from ‘& %s’\n"
     "variable 'ka_function' with type %s has incompatible initializer of type '<overloaded function type>'",
     "there are several functions of this name", "KA_FN does not know which of the overloads is meant",
     "KA_FN_AS(\"f\", (static_cast<double (*)(double)>(f)), \"x\") picks one"},
    {building, NO_NUMBER, "",
     "is not a valid template argument for type %s has no linkage\n"
     "no matching function for call to %sdeclare<ka_function, ka_how%s",
     "the compiler takes no pointer to what a lambda stands for", "a + stands before the lambda",
     "leave the + out: KA_FN_AS(\"half\", [](double x) { return x / 2; }, \"x\"), in C++20"},
    {building, NO_NUMBER, "",
     "this_function_is_declared_twice_in_KA_MODULE\nduplicate member '%s'\nduplicate member ‘%s’",
     "one name stands twice: two functions of the module, or two parameters in a line of ka/module.h",
     "a line was copied, or two overloads have one name",
     "give one another name; KA_FN_AS(\"name\", f) renames a function"},
    {building, NO_NUMBER, "", "KA_MODULE: a module has one function at least", "KA_MODULE is empty",
     "no function stands in it", "KA_MODULE(KA_FN(f))"},
    {building, NO_NUMBER, "", "ka::own: the call host answers with this code itself%s",
     "a return code of the module's own is one that callers take for a refusal of the call host",
     "2, 7, 8, 9, 17, 606 and -1 are the call host's", "choose another number; ka explain NUMBER shows who uses it"},
    {building, NO_NUMBER, "", "is not declared as its line says",
     "a line of KA_MODULE in C and its function have other parameters, or another return type",
     "a C function returns int32_t; each kind has one type: (real, x) is double x, (int32_ref, n) is int32_t *n",
     "make the line and the function alike; ka/module.h lists the types of all kinds"},
    {building, NO_NUMBER, "",
     "is no kind; the kinds are %s\n"
     "a parameter is (kind, name) or, of an array, (kind, name, least)",
     "a parameter in a line of KA_MODULE in C is not written as ka/module.h reads it",
     "a C type stands where a kind belongs, or brackets, kind or name are missing",
     "F(add, (int32, a), (int32_ref, sum)); the message lists the kinds"},
    {building, NO_NUMBER, "",
     "ka/module.hpp is C++17: give the compiler -std=c++17 or a later standard\n"
     "ka/module.h is C11: give the compiler -std=c11 or a later standard",
     "the compiler was asked for an older standard than the header needs", "a -std option says so",
     "-std=c++17, in C -std=c11, or a later one"},
    {building, NO_NUMBER, "",
     "ka::scratch: the caller sees only the bytes of the object\n"
     "ka::scratch: no segment is that large",
     "the type given to ka::scratch cannot lie in memory that is shared with the caller",
     "it has pointers, a destructor or a copy of its own, as std::string has; or it is larger than 2 GB",
     "a struct of numbers and arrays of them"},
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
