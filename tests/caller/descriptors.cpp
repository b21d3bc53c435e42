// SPDX-License-Identifier: MIT
//
// Descriptors that are overwritten before a call, and a block that a module has scrambled.
#include "caller/hosts.h"

#include <csignal>

class Descriptors : public BothLayouts {
protected:
    Descriptors()
        : host(
              [this](ka_options &options) {
                  layout()(options);
                  options.checking = KA_RAW;
              },
              module_path("probe"))
    {
    }
    Host host;
};
IN_BOTH_LAYOUTS(Descriptors);

static bool operator==(const ka_descriptor &a, const ka_descriptor &b)
{
    return a.type == b.type && a.ref == b.ref && a.offset == b.offset && a.maxlen == b.maxlen && a.elsz == b.elsz &&
           a.elcnt == b.elcnt;
}

static std::ostream &operator<<(std::ostream &out, const ka_descriptor &d)
{
    return out << d.type << ' ' << d.ref << ' ' << d.offset << ' ' << d.maxlen << ' ' << d.elsz << ' ' << d.elcnt;
}

static ka_descriptor get(ka_host *host, int32_t argument)
{
    ka_descriptor descriptor = {};
    EXPECT_EQ(ka_get_descriptor(host, argument, &descriptor), KA_DONE) << error_text(host);
    return descriptor;
}

// A call that shows what the host sees of its third argument, two integers.
static ka_descriptor begin_showing(ka_host *host)
{
    const int32_t zeros[6] = {};
    ka_begin(host, "show_descriptor");
    ka_add_integer(host, 3, KA_BY_VALUE);
    ka_add_integers(host, zeros, 6, KA_BY_REFERENCE);
    ka_add_integers(host, zeros, 2, KA_BY_VALUE);
    return get(host, 3);
}

static ka_descriptor shown(ka_host *host)
{
    EXPECT_EQ(call(host), 0);
    const std::vector<int32_t> fields = integers(host, 2, 6);
    return {fields[0], fields[1], fields[2], fields[3], fields[4], fields[5]};
}

TEST_P(Descriptors, are_read_as_they_were_built)
{
    const ka_descriptor built = begin_showing(host);
    EXPECT_EQ(built.type, DLL_INTEGER);
    EXPECT_EQ(built.ref, 0);
    EXPECT_GT(built.offset, 0);
    EXPECT_EQ(built.elsz, 1);
    EXPECT_EQ(built.elcnt, 2);
    EXPECT_EQ(get(host, 0).type, DLL_STRING);
    EXPECT_EQ(get(host, 2).ref, 1);
    EXPECT_EQ(shown(host), built);
}

TEST_P(Descriptors, reach_the_host_field_by_field)
{
    const struct {
        const char *what;
        void (*change)(ka_descriptor &);
    } changes[] = {
        {"type", [](ka_descriptor &d) { d.type = DLL_STRING; }},
        {"ref", [](ka_descriptor &d) { d.ref = -42; }},
        {"offset", [](ka_descriptor &d) { d.offset += 3; }},
        {"offset to the header", [](ka_descriptor &d) { d.offset = 0; }},
        {"maxlen", [](ka_descriptor &d) { d.maxlen = INT32_MIN; }},
        {"elsz", [](ka_descriptor &d) { d.elsz = -7; }},
        {"elcnt", [](ka_descriptor &d) { d.elcnt = 1000000; }},
    };
    for (const auto &[what, change] : changes) {
        SCOPED_TRACE(what);
        ka_descriptor descriptor = begin_showing(host);
        change(descriptor);
        EXPECT_EQ(ka_set_descriptor(host, 3, &descriptor), KA_DONE);
        EXPECT_EQ(get(host, 3), descriptor);
        EXPECT_EQ(shown(host), descriptor);
    }
}

TEST_P(Descriptors, of_the_function_name_can_be_spoilt)
{
    begin_showing(host);
    ka_descriptor name = get(host, 0);
    name.type = DLL_REAL;
    ka_set_descriptor(host, 0, &name);
    EXPECT_EQ(call(host), KA_WRONG_TYPE);
}

TEST_P(Descriptors, of_no_value_type_are_refused_by_the_host)
{
    for (int32_t type : {0, 4, -1, INT32_MAX}) {
        ka_descriptor descriptor = begin_showing(host);
        descriptor.type = type;
        ka_set_descriptor(host, 3, &descriptor);
        EXPECT_EQ(call(host), KA_WRONG_TYPE);
    }
}

TEST_P(Descriptors, with_an_address_outside_the_segment_end_the_host)
{
    for (int64_t offset : {int64_t{-1}, int64_t{(1 << 20) + 64}, int64_t{INT32_MIN}}) {
        Host victim(
            [this](ka_options &options) {
                layout()(options);
                options.checking = KA_RAW;
                options.error_output = KA_STDERR_RING;
            },
            module_path("probe"));
        ka_descriptor descriptor = begin_showing(victim);
        descriptor.offset = offset;
        ka_set_descriptor(victim, 3, &descriptor);
        EXPECT_EQ(get(victim, 3).offset, offset);
        EXPECT_EQ(call_fails(victim), KA_DIED);
        EXPECT_EQ(ka_last_error(victim)->signal, SIGABRT);
    }
}

TEST_P(Descriptors, never_decide_about_results)
{
    ka_descriptor fields = {};
    begin_showing(host);
    fields = get(host, 2);
    fields.elcnt = 1000;
    fields.elsz = 5;
    ka_set_descriptor(host, 2, &fields);
    EXPECT_EQ(call(host), 0);
    EXPECT_EQ(integers(host, 2, 6)[1], 0);
    int32_t values[7];
    EXPECT_EQ(ka_get_integers(host, 2, values, 7), KA_ARGUMENT);
}

TEST_P(Descriptors, are_counted_as_is_said)
{
    for (int32_t argc : {1, 2, 3}) {
        ka_begin(host, "show_argc");
        ka_add_integer(host, 1, KA_BY_VALUE);
        ka_add_integer(host, 2, KA_BY_VALUE);
        EXPECT_EQ(ka_set_argc(host, argc), KA_DONE);
        EXPECT_EQ(call(host), argc);
    }
    for (const auto &[argc, code] : {std::pair(0, +KA_WRONG_COUNT), std::pair(-1, +KA_WRONG_COUNT),
                                     std::pair(52, +KA_TOO_MANY_ARGS), std::pair(INT32_MAX, +KA_TOO_MANY_ARGS)}) {
        ka_begin(host, "show_argc");
        ka_set_argc(host, argc);
        EXPECT_EQ(call(host), code);
    }
    ka_begin(host, "show_argc");
    EXPECT_EQ(call(host), 1); // said for one call alone
}

TEST_P(Descriptors, are_open_only_while_a_raw_call_is_built)
{
    ka_descriptor descriptor = {};
    EXPECT_EQ(ka_get_descriptor(host, 0, &descriptor), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "ka_..._descriptor before ka_begin");
    begin_showing(host);
    EXPECT_EQ(ka_set_descriptor(host, 4, &descriptor), KA_ARGUMENT);
    EXPECT_EQ(error_text(host), "\"show_descriptor\" has no argument 4 yet");
    EXPECT_EQ(ka_last_error(host)->argument, 4);
    EXPECT_EQ(ka_set_descriptor(host, -1, &descriptor), KA_ARGUMENT);
    call(host);
    EXPECT_EQ(ka_set_argc(host, 1), KA_ARGUMENT);

    Host checked;
    ka_begin(checked, "add");
    EXPECT_EQ(ka_get_descriptor(checked, 0, &descriptor), KA_ARGUMENT);
    EXPECT_EQ(error_text(checked),
              "checking is KA_CHECKED (0); descriptors can be seen and changed with KA_RAW (1) only");
    EXPECT_EQ(ka_set_descriptor(checked, 0, &descriptor), KA_ARGUMENT);
    EXPECT_EQ(ka_set_argc(checked, 1), KA_ARGUMENT);
}

// ---- A scrambled block -----------------------------------------------------------------------------------------

class ScrambledBlock : public BothLayouts {};
IN_BOTH_LAYOUTS(ScrambledBlock);

TEST_P(ScrambledBlock, is_whole_again_at_the_next_call)
{
    Host host(layout(), module_path("probe"));
    for (int round = 0; round < 300; round++) {
        ka_begin(host, "scramble");
        ASSERT_EQ(call(host), 77);
        ka_begin(host, "show_argc");
        ka_add_integer(host, 1, KA_BY_REFERENCE);
        ASSERT_EQ(call(host), 2);
        ASSERT_EQ(ka_gives_back(host, 1), 1);
        ASSERT_EQ(integers(host, 1, 1), std::vector<int32_t>({1}));
    }
}

// A forged call-back is answered, and the answer makes the host read what it has scrambled; a forged end puts the
// module's answers out of step. Neither harms the caller.
TEST_P(ScrambledBlock, with_a_forged_callback_or_end_harms_but_the_module)
{
    for (int round = 0; round < 30; round++) {
        Host host(
            [this](ka_options &options) {
                layout()(options);
                options.error_output = KA_STDERR_RING;
            },
            module_path("probe"));
        int32_t status = KA_DONE;
        for (int i = 0; i < 4 && status == KA_DONE; i++) {
            int32_t code = 0;
            ka_begin(host, i == round % 3 ? "scramble_all" : "scramble");
            status = ka_call(host, &code);
        }
        EXPECT_TRUE(status == KA_DONE || status == KA_DIED) << error_text(host);
    }
}
