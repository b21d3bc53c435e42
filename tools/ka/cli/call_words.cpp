// SPDX-License-Identifier: MIT
//
// See call_words.h.
#include "call_words.h"

#include "base/words.h"
#include "mistakes.h"
#include "values/literal.h"

void unmark_words(std::string &module, Request &request, const std::vector<std::string> &option_names)
{
    take_mark(module);
    take_mark(request.function);
    for (std::string &word : request.arguments) {
        const bool is_marked = take_mark(word);
        const bool is_number = word.find_first_of("0123456789.") == 1;
        if (!is_marked && word.size() > 1 && word[0] == '-' && !is_number)
            throw Malformed(unknown_option(word, option_names) + "; put -- before an argument that begins like one");
    }
}
