// SPDX-License-Identifier: MIT
//
// Modules that a test writes, compiles and links itself, each in a folder that goes away with the object.
#ifndef TESTS_KA_BUILT_MODULE_H
#define TESTS_KA_BUILT_MODULE_H

#include <string>

#include "module_bits.h"

// Modules are built for the word size that the tests are run for. This links one with the call host; folders: where
// it looks for libraries too, each after a colon.
inline std::string host_flags(const std::string &folders = "")
{
    const std::string folder = library_folder(KA_BUILD);
    return " -L" + folder + " -lkahost -Wl,-rpath," + folder + folders + " " KA_MODULE_FLAGS " ";
}

class BuiltModule {
public:
    // source: what follows the includes. It defines the tables; KaCall is added unless the flags say -DOWN_KACALL.
    explicit BuiltModule(const std::string &source, const std::string &flags = "");
    ~BuiltModule();
    BuiltModule(const BuiltModule &) = delete;
    BuiltModule &operator=(const BuiltModule &) = delete;

    std::string path() const { return folder_ + "/module"; }
    std::string folder() const { return folder_; }

    // Compiles another file into the folder.
    void build(const std::string &name, const std::string &source, const std::string &flags) const;

    // Makes a file of the folder the module.
    void take(const std::string &name) const;

    // Replaces bytes of the module: all places where they occur.
    void replace(const std::string &from, const std::string &to) const;
    void put(size_t offset, const std::string &bytes) const;

private:
    std::string folder_;
};

// Tables without a fault.
inline const std::string sound_tables = "t_DLL_PROTO KaArgList[] = {{\"a\", 1, 0}};"
                                        "t_DLL_FUNC KaFuncList[] = {{\"f\", 0, 1, 0}, {0, 0, 0, 0}};";

#endif
