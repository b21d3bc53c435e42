// SPDX-License-Identifier: MIT
//
// See show.h.
#include "show.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "base/terminal.h"
#include "base/text.h"
#include "ka/dll_block.h"

namespace {

using nlohmann::ordered_json;

std::string line(const char *name, const std::string &value)
{
    char label[16];
    std::snprintf(label, sizeof label, "  %-9s ", name);
    return label + value + "\n";
}

std::string fault_line(const std::string &text)
{
    return "  " + painted("wrong", Paint::error, STDOUT_FILENO) + "     " + text + "\n";
}

std::string role_of(const Dump &dump, const Attached &process)
{
    if (process.host_layout) return "host";
    return dump.block && dump.block->pid == process.pid ? "caller" : "process";
}

std::string show_segment(const Dump &dump)
{
    const Segment &segment = dump.segment;
    std::string text = painted("segment " + std::to_string(segment.id), Paint::name, STDOUT_FILENO) + ": " +
                       std::to_string(segment.size) + " bytes, attached " + std::to_string(segment.attachments) +
                       (segment.attachments == 1 ? " time" : " times") +
                       (segment.is_removed ? ", removed with the last" : ", not marked for removal") + "\n";
    for (const Attached &process : segment.processes)
        text += line(role_of(dump, process).c_str(), std::to_string(process.pid) + " " + printable(process.command));
    return text;
}

// The scratch area ends with the block.
std::string scratch_text(const Block &block)
{
    if (block.scratch == 0) return "none";
    if (!block.scratch_offset) return "outside";
    return std::to_string(block.shmsz - static_cast<int32_t>(*block.scratch_offset)) + " bytes at " +
           std::to_string(*block.scratch_offset);
}

std::string show_header(const Dump &dump)
{
    const Block &block = *dump.block;
    char number[24];
    std::string text = painted("block", Paint::name, STDOUT_FILENO) + ": layout " +
                       (block.layout == 64 ? "64" : "native") + ", " + dump.layout_from + "\n";
    std::snprintf(number, sizeof number, "%x", static_cast<unsigned>(block.version));
    text += line("version", number);
    text += line("pid", std::to_string(block.pid) + (is_alive(block.pid) ? ", alive" : ", no such process"));
    std::snprintf(number, sizeof number, "0x%x", block.base);
    text += line("base", number);
    text += line("retcode", std::to_string(block.retcode));
    text += line("shmsz", std::to_string(block.shmsz));
    text += line("scratch", scratch_text(block));
    text += line("cbval", std::to_string(block.cbval));
    text += line("argc", std::to_string(block.argc) + (block.argc == 0 ? ", no call" : ""));
    for (const std::string &fault : block.faults)
        text += fault_line(fault);
    return text;
}

std::string values_text(const BlockDescriptor &descriptor, bool is_name)
{
    std::string text;
    for (const BlockElement &element : descriptor.elements)
        text += (text.empty() ? "" : ", ") + (element.text.empty() ? "?" : element.text);
    const auto shown = static_cast<int32_t>(descriptor.elements.size());
    if (is_name) return text;
    if (shown < descriptor.elcnt) text += (text.empty() ? "" : ", ") + std::string("...");
    return descriptor.elcnt == 1 ? text : "[" + text + "]";
}

std::string title_of(const BlockDescriptor &descriptor, size_t index)
{
    std::string text = index == 0 ? "function name" : "argument " + std::to_string(index);
    text = painted(text, Paint::name, STDOUT_FILENO) + ": " + type_name(descriptor.type);
    text += descriptor.ref != 0 ? " by reference" : " by value";
    if (descriptor.offset) text += ", at " + std::to_string(*descriptor.offset);
    if (descriptor.elcnt != 1)
        text += ", " + std::to_string(descriptor.elcnt) + " elements, " +
                std::to_string(int64_t{4} * descriptor.elsz) + " bytes apart";
    if (descriptor.type == DLL_STRING) text += ", room " + std::to_string(descriptor.maxlen);
    return text + "\n";
}

std::string show_descriptor(const BlockDescriptor &descriptor, size_t index)
{
    std::string text = title_of(descriptor, index);
    if (descriptor.offset) text += line("value", values_text(descriptor, index == 0));
    for (const std::string &fault : descriptor.faults)
        text += fault_line(fault);
    for (size_t k = 0; k < descriptor.elements.size(); k++)
        if (!descriptor.elements[k].fault.empty())
            text += fault_line("element " + std::to_string(k) + ": " + descriptor.elements[k].fault);
    return text;
}

ordered_json segment_json(const Dump &dump)
{
    const Segment &segment = dump.segment;
    ordered_json json;
    json["id"] = segment.id;
    json["bytes"] = segment.size;
    json["attachments"] = segment.attachments;
    json["removed"] = segment.is_removed;
    json["processes"] = ordered_json::array();
    for (const Attached &process : segment.processes)
        json["processes"].push_back(
            {{"pid", process.pid}, {"role", role_of(dump, process)}, {"command", process.command}});
    return json;
}

std::string hex_of(const std::string &bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

// Of a string the bytes too: a JSON text cannot tell those that are no UTF-8.
ordered_json element_json(const BlockElement &element, bool is_string)
{
    ordered_json json;
    json["text"] = element.text.empty() ? ordered_json() : ordered_json(element.text);
    if (is_string) json["hex"] = hex_of(element.bytes);
    if (!element.fault.empty()) json["wrong"] = element.fault;
    return json;
}

ordered_json descriptor_json(const BlockDescriptor &descriptor)
{
    ordered_json json;
    json["type"] = descriptor.type;
    json["type_name"] = type_name(descriptor.type);
    json["by_reference"] = descriptor.ref != 0;
    json["ptr"] = descriptor.ptr;
    json["offset"] = descriptor.offset ? ordered_json(*descriptor.offset) : ordered_json();
    json["maxlen"] = descriptor.maxlen;
    json["elsz"] = descriptor.elsz;
    json["elcnt"] = descriptor.elcnt;
    json["values"] = ordered_json::array();
    for (const BlockElement &element : descriptor.elements)
        json["values"].push_back(element_json(element, descriptor.type == DLL_STRING));
    json["wrong"] = descriptor.faults;
    return json;
}

ordered_json block_json(const Dump &dump)
{
    const Block &block = *dump.block;
    ordered_json json;
    json["layout"] = block.layout == 64 ? "64" : "native";
    json["layout_from"] = dump.layout_from;
    json["version"] = block.version;
    json["pid"] = block.pid;
    json["pid_alive"] = is_alive(block.pid);
    json["base"] = block.base;
    json["retcode"] = block.retcode;
    json["shmsz"] = block.shmsz;
    json["scratch"] = block.scratch;
    json["scratch_offset"] = block.scratch_offset ? ordered_json(*block.scratch_offset) : ordered_json();
    json["cbval"] = block.cbval;
    json["argc"] = block.argc;
    json["wrong"] = block.faults;
    json["descriptors"] = ordered_json::array();
    for (const BlockDescriptor &descriptor : block.descriptors)
        json["descriptors"].push_back(descriptor_json(descriptor));
    return json;
}

} // namespace

std::string show_dump(const Dump &dump)
{
    std::string text = show_segment(dump);
    if (!dump.no_block.empty()) text += fault_line("no block: " + dump.no_block);
    if (!dump.block) return text;
    text += show_header(dump);
    for (size_t i = 0; i < dump.block->descriptors.size(); i++)
        text += show_descriptor(dump.block->descriptors[i], i);
    return text;
}

ordered_json dump_json(const Dump &dump)
{
    ordered_json json;
    json["segment"] = segment_json(dump);
    json["no_block"] = dump.no_block.empty() ? ordered_json() : ordered_json(dump.no_block);
    json["block"] = dump.block ? block_json(dump) : ordered_json();
    return json;
}
