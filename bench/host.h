// SPDX-License-Identifier: MIT
//
// A host that a benchmark calls. Whatever fails ends the program.
#ifndef BENCH_HOST_H
#define BENCH_HOST_H

#include <errno.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "ka/caller.h"

namespace bench {

class Host {
public:
    explicit Host(const char *module, const std::function<void(ka_options &)> &change = {})
    {
        ka_options options;
        ka_options_init(&options, sizeof options);
        if (change) change(options);
        check(ka_open(&host_, module, &options));
    }
    ~Host() { ka_close(host_); }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    operator ka_host *() const { return host_; }

    // Of what the library has answered.
    void check(int32_t status) const
    {
        if (status == KA_DONE) return;
        std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, ka_last_error(host_)->message);
        std::exit(1);
    }

    // add(host) adds the arguments.
    template <typename Add>
    void call(const char *function, Add add) const
    {
        int32_t code;
        check(ka_begin(host_, function));
        add(host_);
        check(ka_call(host_, &code));
    }
    void call(const char *function) const
    {
        call(function, [](ka_host *) {});
    }

private:
    ka_host *host_ = nullptr;
};

} // namespace bench

#endif
