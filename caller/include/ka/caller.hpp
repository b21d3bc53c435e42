// SPDX-License-Identifier: MIT
//
// The caller's side for C++17: ka/caller.h with hosts that close themselves, calls in one line, and exceptions.
//
//     ka::Host host("./adder");
//     std::int32_t sum = 0;
//     const std::int32_t code = host.call("add", 2, 40, ka::ref(sum));
//
// The rules of ka/caller.h hold here too. In C++ an argument is written as
//
//     INTEGER  int and narrower integers
//     REAL     double, float, t_DECIMAL, ka::Decimal("19.99")
//     STRING   std::string, std::string_view, "text"; ka::in(text, room) for one with room
//     array    std::vector, std::array, or whatever has data() and size(), of std::int32_t, double, t_DECIMAL,
//              ka::Decimal or text
//
// and is passed by value; ka::ref(variable) passes it by reference, and the variable has the result after the call.
// For a string, room is how long it may become: ka::ref(text, room).
//
// A function that fails throws ka::Error. The functions named try_... do not: they return the class of the error, and
// Host::error has the rest. Without exceptions (-fno-exceptions) use those; the others end the program on an error.
#ifndef KA_CALLER_HPP
#define KA_CALLER_HPP

#if __cplusplus < 201703L
#error "ka/caller.hpp is C++17: give the compiler -std=c++17 or a later standard"
#endif

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "ka/caller_arguments.hpp"
#include "ka/caller_tables.hpp"

namespace ka {

// The fields of ka_options, with their defaults.
struct Options : ka_options {
    Options() { ka_options_init(this, sizeof(ka_options)); }
};

// Of the library that runs: "1.2.3".
inline const char *version() noexcept
{
    return ka_version();
}

// Sets *level, unless level is null, and returns the level before. See ka_trace_process. Throws its errors.
inline std::int32_t trace_process(std::int32_t pid, const std::int32_t *level = nullptr)
{
    char why[256] = "";
    std::int32_t old = 0;
    const std::int32_t status = ka_trace_process(pid, level, &old, why, sizeof why);
    if (status != KA_DONE) detail::raise(status, why);
    return old;
}

// The class of the error, or KA_DONE and the function's return code.
struct Result {
    std::int32_t error_class;
    std::int32_t return_code;
    explicit operator bool() const noexcept { return error_class == KA_DONE; }
};

// What a step of a call has come to: KA_RETURNED with the return code, KA_CALLBACK with the value, or KA_WAITING.
struct Step {
    std::int32_t what;
    std::int32_t value;
};

struct Scratch {
    void *data;        // null when there is none
    std::int32_t size; // bytes
};

// A module and its process, which ends with this object. Destroying it inside its own call-back ends the program. A
// host that was moved from may only be assigned to and destroyed.
class Host {
public:
    using Callback = std::function<std::int32_t(std::int32_t value)>;

    explicit Host(const std::string &module, const ka_options &options = Options()) : Host(try_open(module, options))
    {
        if (error().error_class != KA_DONE) fail();
    }

    // Does not throw when the start fails: see error.
    static Host try_open(const std::string &module, const ka_options &options = Options())
    {
        Host host(std::make_unique<State>());
        host.state_->open(module, options);
        return host;
    }

    // Answers the call-backs from the next call on, in place of ka_options.callback. If it throws, this and all
    // further call-backs of that call are answered with on_exception. Once the call is over and its results are
    // stored, the function that made the call throws that exception, a try_ function too.
    void on_callback(Callback callback, std::int32_t on_exception = 0)
    {
        state_->next = std::make_shared<const Answers>(Answers{std::move(callback), on_exception});
    }

    // One call; returns the function's return code.
    template <typename... Arguments>
    std::int32_t call(std::string_view function, const Arguments &...arguments)
    {
        return value_of(try_call(function, arguments...));
    }

    template <typename... Arguments>
    Result try_call(std::string_view function, const Arguments &...arguments)
    {
        begin(function);
        (add(arguments), ...);
        Result result = exchange();
        [[maybe_unused]] auto take_next = [&, number = std::int32_t{0}](const auto &argument) mutable {
            if (result) result.error_class = detail::take_if_referred(get(), ++number, argument);
        };
        (take_next(arguments), ...);
        state_->rethrow();
        return result;
    }

    // The same step by step, for calls whose arguments are not known when the program is compiled. A mistake in an
    // argument is reported by send. take stores the result of an argument that is given back; for any other it leaves
    // the variable alone.
    void begin(std::string_view function) { ka_begin(get(), detail::without_zeros(function).c_str()); }

    template <typename T>
    void add(const T &argument)
    {
        detail::add(get(), argument, 0, KA_BY_VALUE);
    }

    std::int32_t send() { return value_of(try_send()); }

    Result try_send()
    {
        const Result result = exchange();
        state_->rethrow();
        return result;
    }

    // In place of send, the call in steps of ka_send, ka_wait and ka_answer. The function given to on_callback is not
    // called. A host that is destroyed in between cancels the call.
    void start() { check(ka_send(get())); }

    Step wait(std::int32_t timeout_ms = -1)
    {
        Step step{KA_WAITING, 0};
        check(ka_wait(get(), timeout_ms, &step.what, &step.value));
        return step;
    }

    void answer(std::int32_t value) { check(ka_answer(get(), value)); }

    // The descriptor of ka_wait_fd; the host keeps it.
    int wait_fd()
    {
        const int fd = ka_wait_fd(get());
        if (fd == -1) fail();
        return fd;
    }

    // Ends the call or the start that is under way. From any thread, and from signal handlers; see ka_cancel.
    bool cancel() const noexcept { return ka_cancel(get()) != 0; }

    bool gives_back(std::int32_t argument) const { return ka_gives_back(get(), argument) != 0; }

    template <typename T>
    void take(std::int32_t argument, T &variable)
    {
        static_assert(detail::is_one_of<detail::Element<T>, std::int32_t, double, t_DECIMAL, Decimal, std::string>,
                      "results are stored in std::int32_t, double, t_DECIMAL, ka::Decimal or std::string");
        check(detail::take_if_referred(get(), argument, Ref<T>{variable, 0}));
    }

    // The error of the last function that was called, and its reports. The reference is valid until the next call of
    // a function of this object; the reports are empty when there was no error.
    const ka_error &error() const noexcept { return *ka_last_error(get()); }
    std::string report() { return text_or_empty(ka_report_text(get())); }
    std::string report_json() { return text_or_empty(ka_report_json(get())); }

    // The last characters of the host process's standard error, at most size; see KA_STDERR_RING.
    std::string error_output(std::int32_t size = 4096)
    {
        std::string text(static_cast<std::size_t>(std::max(size, 0)), '\0');
        text.resize(static_cast<std::size_t>(ka_error_output(get(), text.data(), detail::length(text.size()))));
        return text;
    }

    // Why the last call had its return code, or empty; see ka_reason.
    std::string reason() const { return text_or_empty(ka_reason(get())); }

    // ka_retire of ka/caller.h. The object stays until nobody is inside a function of it any more; its end does
    // nothing.
    void retire() noexcept
    {
        state_->retired = true;
        ka_retire(get());
    }

    // The functions ka_restart, ka_set_deadline, ka_set_trace, ka_pid and ka_scratch of ka/caller.h.
    void restart() { check(ka_restart(get())); }
    void set_deadline(std::int32_t milliseconds) { check(ka_set_deadline(get(), milliseconds)); }
    void set_trace(std::int32_t level) { check(ka_set_trace(get(), level)); }
    std::int32_t pid() const noexcept { return ka_pid(get()); }

    Scratch scratch() const noexcept
    {
        std::int32_t size = 0;
        void *const data = ka_scratch(get(), &size);
        return {data, size};
    }

    // Valid until the host process ends.
    Tables tables()
    {
        const ka_tables *const tables = ka_host_tables(get());
        if (!tables) fail();
        return Tables(std::shared_ptr<const ka_tables>(tables, [](const ka_tables *) {}));
    }

    // With KA_RAW, between begin and send.
    ka_descriptor descriptor(std::int32_t argument)
    {
        ka_descriptor found;
        check(ka_get_descriptor(get(), argument, &found));
        return found;
    }
    void set_descriptor(std::int32_t argument, const ka_descriptor &wanted)
    {
        check(ka_set_descriptor(get(), argument, &wanted));
    }
    void set_argc(std::int32_t argc) { check(ka_set_argc(get(), argc)); }

    // For the functions of ka/caller.h; this object still owns it.
    ka_host *get() const noexcept { return state_->host; }

private:
    struct Answers {
        Callback callback;
        std::int32_t on_exception = 0;
    };

    // The library keeps a pointer to this, so its address must not change when the Host is moved.
    struct State {
        ka_host *host = nullptr;
        ka_options given{};
        std::shared_ptr<const Answers> next = std::make_shared<const Answers>();
        std::shared_ptr<const Answers> used; // by the call in progress
        std::exception_ptr thrown;
        std::atomic<bool> retired{false};

        State() = default;
        State(const State &) = delete;
        State &operator=(const State &) = delete;
        ~State()
        {
            if (retired) return;
            std::int32_t status = ka_close(host);
            if (status == KA_ARGUMENT && ends_steps()) status = ka_close(host);
            if (status == KA_ARGUMENT) std::terminate();
            if (status != KA_DONE) ka_close(host); // a destructor cannot report that a process is left
        }

        bool ends_steps()
        {
            Step step{};
            ka_cancel(host);
            return ka_wait(host, -1, &step.what, &step.value) == KA_CANCELLED;
        }

        void open(const std::string &module, const ka_options &options)
        {
            given = options;
            ka_options changed = options;
            changed.user = this;
            changed.callback = [](ka_host *, std::int32_t value, void *user) noexcept {
                return static_cast<State *>(user)->answer(value);
            };
            if (given.inspector) {
                changed.inspector = [](std::int32_t pid, std::int32_t signal, char *text, std::int32_t size,
                                       void *user) {
                    const ka_options &options_given = static_cast<State *>(user)->given;
                    options_given.inspector(pid, signal, text, size, options_given.user);
                };
            }
            ka_open(&host, detail::without_zeros(module).c_str(), &changed);
        }

        std::int32_t ask(std::int32_t value)
        {
            if (used->callback) return used->callback(value);
            return given.callback ? given.callback(host, value, given.user) : 0;
        }

        // Between a call and its call-backs there are frames of C, which no exception may cross.
        std::int32_t answer(std::int32_t value) noexcept
        {
            if (thrown) return used->on_exception;
#ifdef __cpp_exceptions
            try {
                return ask(value);
            } catch (...) {
                thrown = std::current_exception();
                return used->on_exception;
            }
#else
            return ask(value);
#endif
        }

        void rethrow()
        {
            if (thrown) std::rethrow_exception(std::exchange(thrown, nullptr));
        }
    };

    explicit Host(std::unique_ptr<State> state) : state_(std::move(state)) {}

    Result exchange()
    {
        std::int32_t code = 0;
        auto before = std::exchange(state_->used, state_->next); // not null in a call-back, where this call fails
        const std::int32_t status = ka_call(get(), &code);
        state_->used = std::move(before);
        return {status, code};
    }

    [[noreturn]] void fail()
    {
        const ka_error record = error();
        const std::string text = report();
        detail::raise(Error(record, text.c_str(), report_json().c_str()));
    }

    void check(std::int32_t status)
    {
        if (status != KA_DONE) fail();
    }

    std::int32_t value_of(const Result &result)
    {
        check(result.error_class);
        return result.return_code;
    }

    static std::string text_or_empty(const char *text)
    {
        return text ? text : "";
    }

    std::unique_ptr<State> state_;
};

} // namespace ka

#endif
