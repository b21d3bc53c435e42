// SPDX-License-Identifier: MIT
//
// The files of a new module. The templates are plain files, which the build makes part of ka.
#ifndef KA_TOOL_NEW_PROJECT_H
#define KA_TOOL_NEW_PROJECT_H

#include <string>
#include <vector>

struct ProjectFile {
    std::string name;
    std::string text;
};

// In what the module is written.
enum class Writing { cpp, c, tables };

// Why no module can have the name; empty when one can.
std::string fault_of_name(const std::string &name);

std::vector<ProjectFile> project_files(const std::string &name, Writing writing);

// Makes the folder, which must not be there, with the files in it. Empty, or why that failed: then nothing is left.
std::string write_project(const std::string &folder, const std::vector<ProjectFile> &files);

#endif
