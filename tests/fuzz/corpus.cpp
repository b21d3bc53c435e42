// SPDX-License-Identifier: MIT
//
// The inputs that fuzzing has found interesting, once more.
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

#include "fuzz/targets.h"

using fuzz::Bytes;

static std::vector<std::pair<std::string, Bytes>> corpus(const char *target)
{
    std::vector<std::pair<std::string, Bytes>> inputs;
    for (const auto &entry : std::filesystem::directory_iterator(std::filesystem::path(KA_CORPUS) / target)) {
        std::ifstream file(entry.path(), std::ios::binary);
        inputs.emplace_back(entry.path().filename(),
                            Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
    }
    return inputs;
}

TEST(Fuzz, corpus_runs_clean)
{
    const auto texts = corpus("text");
    const auto programs = corpus("program");
    const auto modules = corpus("tables");
    EXPECT_GE(texts.size(), 10u);
    EXPECT_GE(programs.size(), 10u);
    EXPECT_GE(modules.size(), 10u);
    for (const auto &[name, input] : texts)
        EXPECT_EQ(fuzz::try_text(input), "") << name;
    for (const auto &[name, input] : programs)
        EXPECT_EQ(fuzz::try_program(input), "") << name;
    for (const auto &[name, input] : modules)
        EXPECT_EQ(fuzz::try_tables(input), "") << name;
}

TEST(Fuzz, corpus_has_sound_modules_of_both_word_sizes)
{
    std::set<int> classes;
    for (const auto &[name, input] : corpus("tables"))
        if (fuzz::has_tables(input)) classes.insert(input[EI_CLASS]);
    EXPECT_EQ(classes, std::set<int>({ELFCLASS32, ELFCLASS64}));
}

TEST(Fuzz, corpus_has_every_operation)
{
    std::set<std::string> seen;
    for (const auto &[name, input] : corpus("program"))
        seen.merge(fuzz::operations_of(input));
    EXPECT_EQ(seen, fuzz::all_operations());
}
