// SPDX-License-Identifier: MIT
//
// Call-backs and ends of calls that look the same in the shared block, while another process signals the caller:
// every one must be taken for what it is. A million of each in the long mode.
#include <algorithm>
#include <climits>
#include <csignal>
#include <random>

#include "caller/hosts.h"
#include "caller/storm.h"
#include "scale/scale.h"

namespace {

// The values with which the module's function "play" calls back, and which it returns at the end.
enum Kind : int32_t { LITERAL, WHAT_CBVAL_HOLDS, WHAT_RETCODE_HOLDS };

// Values that mean something to the host or the library, or would to a careless one.
constexpr int32_t values_of_note[] = {0, 1, 2, 7, 8, 9, 17, 606, -1, INT_MIN, INT_MAX};

struct Play {
    std::vector<int32_t> asked;    // values of the call-backs, as they arrived
    std::vector<int32_t> answered; // and what was answered
    std::mt19937 random;
};

int32_t note(Play *play, int32_t value)
{
    constexpr auto last = static_cast<int32_t>(std::size(values_of_note)) - 1;
    const int32_t choice = std::uniform_int_distribution<int32_t>(-2, last)(play->random);
    if (choice == -2) return value;
    if (choice == -1) return play->answered.empty() ? value : play->answered.back();
    return values_of_note[choice];
}

int32_t answer_play(ka_host *, int32_t value, void *user)
{
    auto *play = static_cast<Play *>(user);
    play->asked.push_back(value);
    play->answered.push_back(note(play, value));
    return play->answered.back();
}

class Verdicts : public EveryWay {
protected:
    std::function<void(ka_options &)> playing()
    {
        return [this](ka_options &options) {
            layout()(options);
            options.user = &play_;
            options.callback = answer_play;
        };
    }

    // One call. The module's own record of what it asked, heard and returned must be the library's.
    void expect_played(ka_host *host, const std::vector<int32_t> &kinds, const std::vector<int32_t> &values)
    {
        const auto count = static_cast<int32_t>(kinds.size());
        const std::vector<int32_t> no_answers(kinds.size(), -77);
        play_.asked.clear();
        play_.answered.clear();
        ka_begin(host, "play");
        ka_add_integers(host, kinds.data(), count, KA_BY_VALUE);
        ka_add_integers(host, values.data(), count, KA_BY_REFERENCE);
        ka_add_integers(host, no_answers.data(), count, KA_BY_REFERENCE);
        ka_add_integer(host, offset_of_cbval(), KA_BY_VALUE);
        ka_add_integer(host, offset_of_retcode(), KA_BY_VALUE);
        const int32_t code = call(host);
        std::vector<int32_t> played = integers(host, 2, count);
        std::vector<int32_t> heard = integers(host, 3, count);
        ASSERT_EQ(code, played.back());
        played.pop_back();
        heard.pop_back();
        ASSERT_EQ(play_.asked, played);
        ASSERT_EQ(play_.answered, heard);
    }

    Play play_;
};
IN_EVERY_WAY(Verdicts);

} // namespace

// Each call-back has the value that was in cbval before, each end returns the one that was in retcode.
TEST_P(Verdicts, are_right_when_the_block_never_changes)
{
    Host host(playing());
    const Storm storm(getpid());
    const int32_t exchanges = of_a_million(4000) / 4;
    const Timed timed("ambiguous exchanges", exchanges);
    for (int32_t done = 0; done < exchanges;) {
        const int32_t count = std::min(1 + done % 9, exchanges - done);
        std::vector<int32_t> kinds(static_cast<size_t>(count), WHAT_CBVAL_HOLDS);
        kinds.back() = WHAT_RETCODE_HOLDS;
        ASSERT_NO_FATAL_FAILURE(expect_played(host, kinds, std::vector<int32_t>(kinds.size(), 0)));
        done += count;
    }
}

TEST_P(Verdicts, are_right_for_values_of_every_kind)
{
    Host host(playing());
    const Storm storm(getpid());
    const int32_t exchanges = of_a_million(8000) / 4;
    const Timed timed("mixed exchanges", exchanges);
    std::uniform_int_distribution<int32_t> kind(LITERAL, WHAT_RETCODE_HOLDS + 3);
    for (int32_t done = 0; done < exchanges;) {
        const auto count = static_cast<size_t>(std::min(1 + done % 9, exchanges - done));
        std::vector<int32_t> kinds;
        std::vector<int32_t> values;
        while (kinds.size() < count) {
            const int32_t drawn = kind(play_.random);
            kinds.push_back(drawn > WHAT_RETCODE_HOLDS ? LITERAL : drawn);
            values.push_back(note(&play_, static_cast<int32_t>(play_.random())));
        }
        ASSERT_NO_FATAL_FAILURE(expect_played(host, kinds, values));
        done += static_cast<int32_t>(count);
    }
}
