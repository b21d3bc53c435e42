/* SPDX-License-Identifier: MIT
 *
 * What the loader changes in a file's memory, as far as pointers can be: in a program that can lie anywhere each
 * holds nothing until the loader has been there, and its value is in a table of relocations. Where that table has no
 * addends, and in the compressed one (DT_RELR), the pointer's value without the program's place is in the file, and
 * an image lies at its own addresses; so these need no look.
 *
 * The records are found by their place, and read when a pointer there is asked for. If several have one place, the
 * last of the table counts, as it does for the loader. Records whose places overlap only in part, which no linker
 * makes, are taken each for itself. */
#include <stdio.h>
#include <stdlib.h>

#include "image.h"

enum { RELOCATIONS_MAX = 4 << 20 }; /* of a file; twice what the largest tables need */

/* A record is the place, type and symbol in one word, and perhaps what is to be added. */
enum { RECORD_PLACE, RECORD_INFO, RECORD_ADDEND, RECORD_WORDS };

static int32_t record_words(const t_MACHINE *machine)
{
    return machine->has_addends ? RECORD_WORDS : RECORD_ADDEND;
}

static uint32_t type_in(const t_MACHINE *machine, uint64_t info)
{
    return static_cast<uint32_t>(machine->bits == 64 ? ELF64_R_TYPE(info) : ELF32_R_TYPE(info));
}

static uint32_t symbol_in(const t_MACHINE *machine, uint64_t info)
{
    return static_cast<uint32_t>(machine->bits == 64 ? ELF64_R_SYM(info) : ELF32_R_SYM(info));
}

static bool read_record(t_IMAGE *image, uint32_t number, uint64_t record[RECORD_WORDS])
{
    const int32_t words = record_words(image->machine);
    const uint64_t bytes = static_cast<uint64_t>(words) * word_bytes(image->machine);
    return read_words(image, image->relocations.table + number * bytes, record, words);
}

/* ---- In the order of places ------------------------------------------------------------------------------------ */

static bool comes_before(const t_RELOCATION *one, const t_RELOCATION *other)
{
    return one->place != other->place ? one->place < other->place : one->number < other->number;
}

static void sift_down(t_RELOCATION *heap, int32_t root, int32_t count)
{
    const t_RELOCATION sifted = heap[root];
    for (int32_t child; (child = 2 * root + 1) < count; root = child) {
        if (child + 1 < count && comes_before(&heap[child], &heap[child + 1])) child++;
        if (!comes_before(&sifted, &heap[child])) break;
        heap[root] = heap[child];
    }
    heap[root] = sifted;
}

/* Not by qsort, which takes quadratic time for some lists where memory is short. */
static void sort(t_RELOCATION *list, int32_t count)
{
    for (int32_t root = count / 2 - 1; root >= 0; root--)
        sift_down(list, root, count);
    for (int32_t last = count - 1; last > 0; last--) {
        const t_RELOCATION largest = list[0];
        list[0] = list[last];
        list[last] = largest;
        sift_down(list, 0, last);
    }
}

/* The last record of that place, or null. */
static const t_RELOCATION *find_place(const t_RELOCATIONS *relocations, uint64_t place)
{
    int32_t first = 0;
    int32_t end = relocations->count;
    while (first < end) {
        const int32_t middle = first + (end - first) / 2;
        if (relocations->list[middle].place <= place)
            first = middle + 1;
        else
            end = middle;
    }
    return first > 0 && relocations->list[first - 1].place == place ? &relocations->list[first - 1] : nullptr;
}

/* ---- Reading --------------------------------------------------------------------------------------------------- */

/* The list grows as records are found, whatever their number is said to be. */
static bool keep(t_RELOCATIONS *relocations, uint64_t place, uint32_t number)
{
    constexpr int32_t room_at_first = 256;
    const int32_t count = relocations->count;
    if (count == 0 || (count >= room_at_first && (count & (count - 1)) == 0)) {
        const int32_t room = count == 0 ? room_at_first : 2 * count;
        void *larger = realloc(relocations->list, static_cast<size_t>(room) * sizeof(t_RELOCATION));
        if (!larger) return false;
        relocations->list = static_cast<t_RELOCATION *>(larger);
    }
    relocations->list[relocations->count++] = {place, number};
    return true;
}

static constexpr char outside[] = "its relocations lie outside the file";

/* Why the table cannot be read, or null. */
static const char *read_table(t_IMAGE *image, uint32_t count)
{
    t_RELOCATIONS *relocations = &image->relocations;
    const t_MACHINE *machine = image->machine;
    for (uint32_t number = 0; number < count; number++) {
        uint64_t record[RECORD_WORDS];
        if (!read_record(image, number, record)) return outside;
        const bool in_place = !machine->has_addends && type_in(machine, record[RECORD_INFO]) == machine->relative;
        if (!in_place && !keep(relocations, record[RECORD_PLACE], number)) return "no memory";
    }
    return nullptr;
}

/* A table in memory that the file does not fill could cost a small file as much as the largest one. */
bool read_relocations(t_IMAGE *image, char *why, size_t size)
{
    t_RELOCATIONS *relocations = &image->relocations;
    const t_OBJECT *program = &image->objects[0];
    const bool has_addends = image->machine->has_addends;
    uint64_t bytes = 0;
    if (!find_dynamic(image, program, has_addends ? DT_RELA : DT_REL, &relocations->table)) return true;
    find_dynamic(image, program, has_addends ? DT_RELASZ : DT_RELSZ, &bytes);
    find_dynamic(image, program, DT_SYMTAB, &relocations->symbols);
    const uint64_t count = bytes / word_bytes(image->machine) / static_cast<uint32_t>(record_words(image->machine));
    if (count > RELOCATIONS_MAX) {
        snprintf(why, size, "a program with more than %d relocations", RELOCATIONS_MAX);
        return false;
    }
    const bool is_in_file = !is_filled_at_start(image, relocations->table, static_cast<size_t>(bytes));
    const char *reason = is_in_file ? read_table(image, static_cast<uint32_t>(count)) : outside;
    if (reason) snprintf(why, size, "%s", reason);
    if (!reason) sort(relocations->list, relocations->count);
    return !reason;
}

/* ---- Use ------------------------------------------------------------------------------------------------------- */

bool relocate(t_IMAGE *image, uint64_t place, uint64_t held, uint64_t *pointer)
{
    const t_MACHINE *machine = image->machine;
    const t_RELOCATION *found = find_place(&image->relocations, place);
    uint64_t record[RECORD_WORDS];
    uint64_t symbol = 0;
    *pointer = held;
    if (!found) return true;
    if (!read_record(image, found->number, record)) return false;
    const uint32_t type = type_in(machine, record[RECORD_INFO]);
    if (type != machine->relative && type != machine->symbolic) return false;
    if (type == machine->symbolic &&
        !find_numbered_symbol(image, image->relocations.symbols, symbol_in(machine, record[RECORD_INFO]), &symbol))
        return false;
    *pointer = wrapped(image, symbol + (machine->has_addends ? record[RECORD_ADDEND] : held));
    return true;
}
