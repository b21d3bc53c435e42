// SPDX-License-Identifier: MIT
#include "driver/session.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace driver {

Step set_double(int32_t slot, int32_t element, double value)
{
    return {SET_DOUBLE, slot, element, 0, value, {}};
}

Step set_text(int32_t slot, int32_t element, std::string_view text)
{
    Step made = step(SET_TEXT, slot, element);
    if (text.size() >= sizeof made.text) throw std::runtime_error("text too long for a step");
    std::copy(text.begin(), text.end(), made.text);
    return made;
}

Start traced(int level, const std::string &module)
{
    return {.module = module, .environment = {"DRIVER_LEVEL=" + std::to_string(level)}};
}

void write_script(Block &block, const std::vector<Step> &script)
{
    Script written = {};
    if (script.size() > std::size(written.steps)) throw std::runtime_error("script too long");
    written.count = static_cast<int32_t>(script.size());
    std::copy(script.begin(), script.end(), written.steps);
    block.store(script_offset, written);
}

void Session::prepare(std::string_view function, const std::vector<Argument> &arguments,
                      const std::vector<Step> &script)
{
    write_script(block, script);
    place(block, function, arguments);
}

int32_t Session::call(std::string_view function, const std::vector<Argument> &arguments,
                      const std::vector<Step> &script, const std::vector<int32_t> &answers)
{
    prepare(function, arguments, script);
    return host.call(answers);
}

std::string Session::output()
{
    const std::string &all = host.errors();
    const std::string fresh = all.substr(taken_);
    taken_ = all.size();
    return fresh;
}

// The line of /proc/PID/maps whose inode is the segment's identifier.
uint64_t Session::host_address() const
{
    std::ifstream maps("/proc/" + std::to_string(host.pid()) + "/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("/SYSV") == std::string::npos) continue;
        if (line.find(" " + std::to_string(block.id()) + " ") == std::string::npos) continue;
        return std::stoull(line, nullptr, 16);
    }
    throw std::runtime_error("the host has not attached the segment");
}

std::string name_of(Layout layout)
{
    return layout == Layout::layout_64 ? "layout_64" : "native";
}

} // namespace driver

std::ostream &harness::operator<<(std::ostream &out, Layout layout)
{
    return out << driver::name_of(layout);
}
