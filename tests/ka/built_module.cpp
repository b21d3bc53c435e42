// SPDX-License-Identifier: MIT
//
// See built_module.h.
#include "ka/built_module.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "caller/waiting.h"

static constexpr const char *frame = "#include <stdio.h>\n#include <stdlib.h>\n#include <unistd.h>\n"
                                     "#include \"ka/dll_module.h\"\n"
                                     "#ifndef OWN_KACALL\n"
                                     "int32_t KaCall(int32_t i, void **a) { return (void)a, i * 0; }\n"
                                     "#endif\n";

BuiltModule::BuiltModule(const std::string &source, const std::string &flags)
{
    std::string folder = std::filesystem::temp_directory_path() / "ka_module.XXXXXX";
    EXPECT_NE(mkdtemp(folder.data()), nullptr);
    folder_ = folder;
    const bool has_host = flags.find("-DNO_HOST") == std::string::npos;
    build("module", frame + source, (has_host ? host_flags() : KA_MODULE_FLAGS " ") + flags);
}

BuiltModule::~BuiltModule()
{
    std::filesystem::remove_all(folder_);
}

void BuiltModule::build(const std::string &name, const std::string &source, const std::string &flags) const
{
    const std::string file = folder_ + "/" + name;
    std::ofstream(file + ".c") << source << '\n';
    const std::string command =
        KA_C_COMPILER + module_flag() + "-w -I" KA_BUILD "/include -o " + file + " " + file + ".c " + flags;
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

void BuiltModule::take(const std::string &name) const
{
    std::filesystem::rename(folder_ + "/" + name, path());
}

void BuiltModule::replace(const std::string &from, const std::string &to) const
{
    std::string bytes = read_file(path());
    EXPECT_NE(bytes.find(from), std::string::npos);
    for (size_t at = 0; (at = bytes.find(from, at)) != std::string::npos; at += to.size())
        bytes.replace(at, from.size(), to);
    std::ofstream(path(), std::ios::binary) << bytes;
}

void BuiltModule::put(size_t offset, const std::string &bytes) const
{
    std::string all = read_file(path());
    all.replace(offset, bytes.size(), bytes);
    std::ofstream(path(), std::ios::binary) << all;
}
