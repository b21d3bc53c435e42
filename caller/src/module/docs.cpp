/* SPDX-License-Identifier: MIT
 *
 * See docs.h. */
#include "docs.h"

#include <string.h>

#include "image.h"
#include "ka/dll_doc.h"

namespace {

/* The fields before the pointers are the same in both word sizes. */
struct t_HEAD {
    char magic[sizeof t_DLL_DOC::magic];
    int32_t version;
    int32_t length;
};
static_assert(sizeof(t_HEAD) == offsetof(t_DLL_DOC, text));

} // namespace

/* What memory and what the module fills as it starts is not the file's. */
static bool is_in_file(const t_IMAGE *image, uint64_t address, uint64_t size)
{
    for (int32_t i = 0; i < image->program_header_count; i++) {
        const Elf64_Phdr *header = &image->program_headers[i];
        const uint64_t inside = wrapped(image, address - image->objects[0].bias - header->p_vaddr);
        if (header->p_type != PT_LOAD || inside >= header->p_filesz) continue;
        if (size <= header->p_filesz - inside) return true;
    }
    return false;
}

/* As the loader leaves it. */
static bool read_pointer(t_IMAGE *image, uint64_t place, uint64_t *pointer)
{
    uint64_t held = 0;
    if (!is_in_file(image, place, word_bytes(image->machine)) || !read_words(image, place, &held, 1)) return false;
    return relocate(image, place, held, pointer) && *pointer != 0;
}

bool find_doc(t_IMAGE *image, uint64_t place, int32_t count, t_DOC *doc)
{
    const uint64_t width = word_bytes(image->machine);
    uint64_t record = 0;
    t_HEAD head;
    if (!read_pointer(image, place, &record) || !is_in_file(image, record, sizeof head)) return false;
    if (!read_image(image, record, &head, sizeof head)) return false;
    if (memcmp(head.magic, DLL_DOC_MAGIC, sizeof head.magic) != 0 || head.version < DLL_DOC_VERSION) return false;
    const uint64_t least = sizeof head + 2 * width;
    if (head.length < 0 || static_cast<uint64_t>(head.length) < least) return false;
    if (!is_in_file(image, record, static_cast<uint64_t>(head.length))) return false;
    doc->text = record + sizeof head;
    const bool has_arguments = count > 0 && read_pointer(image, doc->text + width, &doc->arguments) &&
                               is_in_file(image, doc->arguments, static_cast<uint64_t>(count) * width);
    if (!has_arguments) doc->arguments = 0;
    return true;
}

int32_t read_doc_text(t_IMAGE *image, uint64_t place, char *buffer, int32_t size)
{
    uint64_t text = 0;
    if (!read_pointer(image, place, &text) || !is_in_file(image, text, 1)) return 0;
    const int32_t length = read_image_text(image, text, buffer, size);
    const bool is_whole = length > 0 && is_in_file(image, text, static_cast<uint64_t>(length) + 1);
    return is_whole ? length : 0;
}
