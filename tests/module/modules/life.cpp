// SPDX-License-Identifier: MIT
//
// A module with a set-up, a clean-up and a static object, whose functions allocate, call back, share the scratch
// area, and hold SIGTERM back.
#include <atomic>
#include <csignal>
#include <ka/module.hpp>
#include <memory>
#include <unistd.h>
#include <vector>

namespace {

void say(std::string_view text)
{
    if (write(STDERR_FILENO, text.data(), text.size()) < 0) std::abort();
}

struct Static {
    ~Static() { say("static gone\n"); }
} object;

// Two that always have the same contents, but in the middle of a change.
std::vector<std::unique_ptr<std::string>> one, other;
std::int32_t started;

bool is_sound()
{
    if (one.size() != other.size()) return false;
    for (std::size_t i = 0; i < one.size(); i++)
        if (*one[i] != *other[i]) return false;
    return true;
}

void set_up()
{
    started = 42;
}

// It allocates, which it could not do safely if SIGTERM had come in the middle of an allocation.
void clean_up()
{
    const std::string result = is_sound() ? std::string(100, ' ') + "sound\n" : std::string(100, ' ') + "broken\n";
    one.clear();
    other.clear();
    say(std::string_view(result).substr(100));
}

std::int32_t was_set_up()
{
    return started;
}

// For ever, and counts the rounds where the caller sees them.
void allocate_for_ever()
{
    auto *const rounds = ka::scratch<std::int32_t>();
    for (std::uint32_t round = 0;; round++) {
        {
            const ka::uninterrupted held;
            const std::string text(round * 7919 % 4001, 'x');
            one.push_back(std::make_unique<std::string>(text));
            other.push_back(std::make_unique<std::string>(text));
            if (one.size() > 20) {
                one.erase(one.begin(), one.begin() + round % 20);
                other.erase(other.begin(), other.begin() + round % 20);
            }
        }
        __atomic_store_n(rounds, static_cast<std::int32_t>(round), __ATOMIC_RELAXED);
    }
}

std::int32_t ask(std::int32_t question)
{
    return ka::callback(question);
}

// SIGTERM comes while the call-back waits, and not afterwards.
void ask_while_held()
{
    const ka::uninterrupted held;
    const ka::uninterrupted once_more;
    ka::callback(1);
    raise(SIGTERM);
    say("still held\n");
}

void hold_for_ever()
{
    const ka::uninterrupted held;
    *ka::scratch<std::int32_t>() = 1;
    for (;;)
        pause();
}

struct Shared {
    std::int32_t number;
    char text[20];
};
ka::code share(std::int32_t number)
{
    auto *const shared = ka::scratch<Shared>();
    if (shared == nullptr) return ka::own<1001>;
    shared->number += number;
    return ka::ok;
}

} // namespace

KA_ON_SETUP(set_up)
KA_ON_CLEANUP(clean_up)
KA_MODULE(KA_FN(was_set_up), KA_FN(allocate_for_ever), KA_FN(ask, "question"), KA_FN(ask_while_held),
          KA_FN(hold_for_ever), KA_FN(share, "number"))
