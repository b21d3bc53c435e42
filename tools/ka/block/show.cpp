// SPDX-License-Identifier: MIT
//
// See show.h.
#include "show.h"

#include <cstdio>
#include <unistd.h>

#include "base/terminal.h"
#include "base/text.h"
#include "ka/dll_block.h"

namespace {

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

Json segment_json(const Dump &dump)
{
    const Segment &segment = dump.segment;
    JsonArray processes;
    for (const Attached &process : segment.processes)
        processes.add(
            JsonObject().add("pid", process.pid).add("role", role_of(dump, process)).add("command", process.command));
    return JsonObject()
        .add("id", segment.id)
        .add("bytes", segment.size)
        .add("attachments", segment.attachments)
        .add("removed", segment.is_removed)
        .add("processes", processes);
}

// Of a string the bytes too: a JSON text cannot hold bytes that are not UTF-8.
Json element_json(const BlockElement &element, bool is_string)
{
    JsonObject json;
    json.add("text", element.text.empty() ? Json() : element.text);
    if (is_string) json.add("hex", hex_digits(element.bytes));
    if (!element.fault.empty()) json.add("wrong", element.fault);
    return json;
}

Json descriptor_json(const BlockDescriptor &descriptor)
{
    JsonArray values;
    for (const BlockElement &element : descriptor.elements)
        values.add(element_json(element, descriptor.type == DLL_STRING));
    return JsonObject()
        .add("type", descriptor.type)
        .add("type_name", type_name(descriptor.type))
        .add("by_reference", descriptor.ref != 0)
        .add("ptr", descriptor.ptr)
        .add("offset", descriptor.offset)
        .add("maxlen", descriptor.maxlen)
        .add("elsz", descriptor.elsz)
        .add("elcnt", descriptor.elcnt)
        .add("values", values)
        .add("wrong", descriptor.faults);
}

Json block_json(const Dump &dump)
{
    const Block &block = *dump.block;
    JsonArray descriptors;
    for (const BlockDescriptor &descriptor : block.descriptors)
        descriptors.add(descriptor_json(descriptor));
    return JsonObject()
        .add("layout", block.layout == 64 ? "64" : "native")
        .add("layout_from", dump.layout_from)
        .add("version", block.version)
        .add("pid", block.pid)
        .add("pid_alive", is_alive(block.pid))
        .add("base", block.base)
        .add("retcode", block.retcode)
        .add("shmsz", block.shmsz)
        .add("scratch", block.scratch)
        .add("scratch_offset", block.scratch_offset)
        .add("cbval", block.cbval)
        .add("argc", block.argc)
        .add("wrong", block.faults)
        .add("descriptors", descriptors);
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

Json dump_json(const Dump &dump)
{
    return JsonObject()
        .add("segment", segment_json(dump))
        .add("no_block", dump.no_block.empty() ? Json() : dump.no_block)
        .add("block", dump.block ? block_json(dump) : Json());
}
