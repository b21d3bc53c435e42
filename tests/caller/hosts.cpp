// SPDX-License-Identifier: MIT
//
// See hosts.h.
#include "caller/hosts.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include "caller/waiting.h"

ka_options default_options()
{
    ka_options options;
    ka_options_init(&options, sizeof options);
    const char *transport = std::getenv("KA_TRANSPORT"); // the whole suite is run in each
    if (transport == nullptr) return options;
    options.transport = std::string(transport) == "plain" ? KA_TRANSPORT_PLAIN : KA_TRANSPORT_FAST;
    return options;
}

Host::Host(const std::function<void(ka_options &)> &adjust, const std::string &module)
{
    ka_options options = default_options();
    if (adjust) adjust(options);
    EXPECT_EQ(ka_open(&host, module.c_str(), &options), KA_DONE) << ka_last_error(host)->message;
}

Host::~Host()
{
    EXPECT_EQ(ka_close(host), KA_DONE);
}

int32_t call(ka_host *host)
{
    int32_t code = INT32_MIN;
    EXPECT_EQ(ka_call(host, &code), KA_DONE) << error_text(host);
    return code;
}

int32_t call_fails(ka_host *host)
{
    int32_t code = 0;
    const int32_t error_class = ka_call(host, &code);
    EXPECT_NE(error_class, KA_DONE);
    EXPECT_EQ(ka_last_error(host)->error_class, error_class);
    return error_class;
}

std::string error_text(ka_host *host)
{
    return ka_last_error(host)->message;
}

std::vector<int32_t> integers(ka_host *host, int32_t argument, int32_t count)
{
    std::vector<int32_t> values(static_cast<size_t>(count));
    EXPECT_EQ(ka_get_integers(host, argument, values.data(), count), KA_DONE) << error_text(host);
    return values;
}

std::vector<std::string> reals(ka_host *host, int32_t argument, int32_t count)
{
    std::vector<t_DECIMAL> values(static_cast<size_t>(count));
    EXPECT_EQ(ka_get_reals(host, argument, values.data(), count), KA_DONE) << error_text(host);
    std::vector<std::string> texts;
    for (const t_DECIMAL &value : values) {
        char text[KA_REAL_TEXT];
        texts.emplace_back(ka_real_to_text(&value, text));
    }
    return texts;
}

std::string string(ka_host *host, int32_t argument, int32_t element)
{
    char buffer[1024];
    int32_t length = -1;
    EXPECT_EQ(ka_get_string(host, argument, element, buffer, sizeof buffer, &length), KA_DONE) << error_text(host);
    return length < 0 ? "" : std::string(buffer, static_cast<size_t>(length));
}

int32_t call_with(ka_host *host, const char *function, int32_t number)
{
    ka_begin(host, function);
    ka_add_integer(host, number, KA_BY_VALUE);
    return call(host);
}

// ---- Processes and segments ------------------------------------------------------------------------------------

static bool is_gone(pid_t pid)
{
    const std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
    return status.empty() || status.find("\nState:\tZ") != std::string::npos;
}

bool ends(pid_t pid)
{
    return becomes_true([pid] { return is_gone(pid); });
}

struct Segment {
    int id;
    pid_t creator;
};

static std::vector<Segment> read_segments()
{
    std::istringstream lines(read_file("/proc/sysvipc/shm"));
    std::vector<Segment> segments;
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string key;
        std::string mode;
        std::string size;
        Segment segment;
        if (fields >> key >> segment.id >> mode >> size >> segment.creator) segments.push_back(segment);
    }
    return segments;
}

// Segments from before this program are not its own, even if their creator had the number of this process.
static const std::vector<Segment> earlier_segments = read_segments();

static std::vector<Segment> all_segments()
{
    std::vector<Segment> segments = read_segments();
    std::erase_if(segments, [](const Segment &segment) {
        const auto is_same = [&](const Segment &earlier) { return earlier.id == segment.id; };
        return std::any_of(earlier_segments.begin(), earlier_segments.end(), is_same);
    });
    return segments;
}

static bool all_vanish(const std::function<bool(const Segment &)> &is_meant)
{
    return becomes_true([&] {
        const std::vector<Segment> segments = all_segments();
        return std::none_of(segments.begin(), segments.end(), is_meant);
    });
}

bool segment_vanishes(int segment_id)
{
    return all_vanish([segment_id](const Segment &segment) { return segment.id == segment_id; });
}

bool segments_of_creator_vanish(pid_t pid)
{
    return all_vanish([pid](const Segment &segment) { return segment.creator == pid; });
}

int users_of(int segment_id)
{
    struct shmid_ds status;
    return shmctl(segment_id, IPC_STAT, &status) == 0 ? static_cast<int>(status.shm_nattch) : -1;
}

int segment_of(pid_t pid)
{
    std::string words; // empty for a moment while the program is replaced
    becomes_true([&] { return !(words = read_file("/proc/" + std::to_string(pid) + "/cmdline")).empty(); });
    return std::stoi(words.substr(words.find('\0') + 1));
}

uint64_t signal_mask(pid_t pid, const std::string &field)
{
    const std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
    const size_t at = status.find("\n" + field + ":\t");
    return at == std::string::npos ? 0 : std::stoull(status.substr(at + field.size() + 3), nullptr, 16);
}

uint64_t signal_bit(int signal)
{
    return uint64_t{1} << (signal - 1);
}

static bool is_asleep(pid_t pid)
{
    return read_file("/proc/" + std::to_string(pid) + "/status").find("\nState:\tS") != std::string::npos;
}

// Pending signals are read first: a host that has been signalled shows the mask of its wait until it runs.
bool becomes_idle(pid_t pid)
{
    const uint64_t idle = signal_bit(SIGINT) | signal_bit(SIGUSR1) | signal_bit(SIGIO) | signal_bit(SIGALRM);
    return becomes_true([&] {
        const bool taken = (signal_mask(pid, "ShdPnd") & signal_bit(SIGUSR2)) == 0;
        return taken && is_asleep(pid) && signal_mask(pid, "SigBlk") == idle;
    });
}

bool is_setting_up(pid_t pid)
{
    return becomes_true([&] {
        const bool started = (signal_mask(pid, "SigBlk") & signal_bit(SIGALRM)) != 0;
        const bool ready = (signal_mask(pid, "SigCgt") & signal_bit(SIGUSR2)) != 0;
        return started && !ready && is_asleep(pid);
    });
}

bool is_in_function(pid_t pid)
{
    return becomes_true([&] {
        const uint64_t call = signal_bit(SIGUSR2);
        const bool ready = (signal_mask(pid, "SigCgt") & call) != 0;
        return ready && is_asleep(pid) && (signal_mask(pid, "SigBlk") & call) != 0;
    });
}

void start_library_thread()
{
    ka_host *host = nullptr;
    EXPECT_EQ(ka_open(&host, no_loader_module.c_str(), nullptr), KA_START);
    ka_close(host);
}

int open_descriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
        count++;
    return count;
}

// ---- Files -----------------------------------------------------------------------------------------------------

File::File(const std::string &content, int mode)
{
    char name[] = "/tmp/ka_test_XXXXXX";
    const int fd = mkstemp(name);
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    EXPECT_EQ(fchmod(fd, static_cast<mode_t>(mode)), 0);
    close(fd);
    path = name;
}

File::~File()
{
    unlink(path.c_str());
}

// ---- Layouts ---------------------------------------------------------------------------------------------------

std::function<void(ka_options &)> LayoutTest::layout() const
{
    return [wanted = layout_in_use()](ka_options &options) { options.layout = wanted; };
}

std::function<void(ka_options &)> EveryWay::layout() const
{
    return [way = GetParam()](ka_options &options) { std::tie(options.layout, options.waiting) = way; };
}

int32_t LayoutTest::offset_of_cbval() const
{
    return layout_in_use() == KA_LAYOUT_64 ? offsetof(t_DLL_INFO64, cbval) : offsetof(t_DLL_INFO32, cbval);
}

int32_t LayoutTest::offset_of_retcode() const
{
    return layout_in_use() == KA_LAYOUT_64 ? offsetof(t_DLL_INFO64, retcode) : offsetof(t_DLL_INFO32, retcode);
}

int32_t LayoutTest::offset_of_descriptors() const
{
    return layout_in_use() == KA_LAYOUT_64 ? offsetof(t_DLL_INFO64, args) : offsetof(t_DLL_INFO32, args);
}

int32_t LayoutTest::descriptor_size() const
{
    return layout_in_use() == KA_LAYOUT_64 ? sizeof(t_DLL_ARG64) : sizeof(t_DLL_ARG32);
}
