/* SPDX-License-Identifier: MIT
 *
 * Symbols that an image exports, found through the hash tables that the loader uses. They stay when a file is
 * stripped. A variable of a library that the program itself mentions lies in the program; so the order of the objects
 * counts. */
#include <string.h>

#include "image.h"

enum {
    DYNAMICS_MAX = 1024, /* entries of a dynamic segment */
    CHAIN_MAX = 4096,    /* symbols of one hash value; a few are usual */
    SYMBOL_NAME = 32     /* the longest name that is looked for, terminator included */
};

bool find_dynamic(t_IMAGE *image, const t_OBJECT *object, uint64_t tag, uint64_t *value)
{
    bool found = false;
    for (uint64_t i = 0; i < DYNAMICS_MAX; i++) {
        uint64_t entry[2]; /* tag and value */
        if (!read_words(image, object->dynamic + i * 2 * word_bytes(image->machine), entry, 2)) return found;
        if (entry[0] == DT_NULL) return found;
        if (entry[0] != tag) continue;
        *value = entry[1];
        found = true;
    }
    return found;
}

/* Some loaders add the bias in the dynamic segment itself, of some objects. */
static bool find_table(t_IMAGE *image, const t_OBJECT *object, uint64_t tag, uint64_t *address)
{
    if (!find_dynamic(image, object, tag, address)) return false;
    if (*address < object->bias) *address += object->bias;
    return true;
}

namespace {
struct t_SYMBOLS {
    t_IMAGE *image;
    const t_OBJECT *object;
    const char *name;
    uint64_t table;
    uint64_t strings;
};
} // namespace

static bool read_word(t_IMAGE *image, uint64_t table, uint64_t index, uint32_t *word)
{
    return read_image(image, table + index * sizeof *word, word, sizeof *word);
}

static bool read_symbol(t_IMAGE *image, uint64_t table, uint32_t number, Elf64_Sym *symbol)
{
    char bytes[sizeof *symbol];
    const size_t size = symbol_bytes(image->machine);
    if (!read_image(image, table + uint64_t{number} * size, bytes, size)) return false;
    *symbol = widened_symbol(image->machine, bytes);
    return symbol->st_shndx != SHN_UNDEF;
}

bool find_numbered_symbol(t_IMAGE *image, uint64_t symbols, uint32_t number, uint64_t *address)
{
    Elf64_Sym symbol;
    if (!read_symbol(image, symbols, number, &symbol)) return false;
    *address = symbol.st_value;
    return true;
}

/* True when the symbol of this number is the one that is looked for. */
static bool is_wanted(const t_SYMBOLS *symbols, uint32_t number, uint64_t *address)
{
    Elf64_Sym symbol;
    char own[SYMBOL_NAME];
    if (!read_symbol(symbols->image, symbols->table, number, &symbol)) return false;
    if (read_image_text(symbols->image, symbols->strings + symbol.st_name, own, sizeof own) < 0) return false;
    if (strcmp(own, symbols->name) != 0) return false;
    *address = wrapped(symbols->image, symbol.st_value + symbols->object->bias);
    return true;
}

/* ---- The two kinds of hash tables ------------------------------------------------------------------------------ */

static uint32_t gnu_hash_of(const char *name)
{
    uint32_t hash = 5381;
    for (; *name != '\0'; name++)
        hash = hash * 33 + static_cast<unsigned char>(*name);
    return hash;
}

/* Header, a filter that is not needed, whose words are as wide as addresses, buckets, chains. A chain ends with a
   number whose lowest bit is set; the other bits are those of the hash value. */
static bool look_in_gnu_table(const t_SYMBOLS *symbols, uint64_t table, uint64_t *address)
{
    struct {
        uint32_t buckets, first_symbol, filter_words, filter_shift;
    } header;
    const uint32_t hash = gnu_hash_of(symbols->name);
    if (!read_image(symbols->image, table, &header, sizeof header) || header.buckets == 0) return false;
    uint32_t number = 0;
    const uint64_t filter_bytes = header.filter_words * uint64_t{word_bytes(symbols->image->machine)};
    const uint64_t buckets = table + sizeof header + filter_bytes;
    const uint64_t chains = buckets + uint64_t{header.buckets} * sizeof number;
    if (!read_word(symbols->image, buckets, hash % header.buckets, &number) || number == 0) return false;
    for (int32_t i = 0; i < CHAIN_MAX; i++, number++) {
        uint32_t own = 0;
        if (!read_word(symbols->image, chains, uint64_t{number} - header.first_symbol, &own)) return false;
        if ((own | 1) == (hash | 1) && is_wanted(symbols, number, address)) return true;
        if (own & 1) return false;
    }
    return false;
}

static uint32_t sysv_hash_of(const char *name)
{
    uint32_t hash = 0;
    for (; *name != '\0'; name++) {
        hash = (hash << 4) + static_cast<unsigned char>(*name);
        const uint32_t top = hash & 0xf0000000;
        hash ^= top >> 24;
        hash &= ~top;
    }
    return hash;
}

/* Two counts, buckets, and for each symbol the next one of its chain; 0 ends it. */
static bool look_in_sysv_table(const t_SYMBOLS *symbols, uint64_t table, uint64_t *address)
{
    uint32_t buckets = 0;
    uint32_t number = 0;
    if (!read_word(symbols->image, table, 0, &buckets) || buckets == 0) return false;
    if (!read_word(symbols->image, table, uint64_t{2} + sysv_hash_of(symbols->name) % buckets, &number)) return false;
    for (int32_t i = 0; i < CHAIN_MAX && number != 0; i++) {
        if (is_wanted(symbols, number, address)) return true;
        if (!read_word(symbols->image, table, uint64_t{2} + buckets + number, &number)) return false;
    }
    return false;
}

static bool look_in_object(t_IMAGE *image, const t_OBJECT *object, const char *name, uint64_t *address)
{
    t_SYMBOLS symbols = {image, object, name, 0, 0};
    uint64_t hashes = 0;
    if (!find_table(image, object, DT_SYMTAB, &symbols.table)) return false;
    if (!find_table(image, object, DT_STRTAB, &symbols.strings)) return false;
    if (find_table(image, object, DT_GNU_HASH, &hashes)) return look_in_gnu_table(&symbols, hashes, address);
    return find_table(image, object, DT_HASH, &hashes) && look_in_sysv_table(&symbols, hashes, address);
}

bool find_symbol(t_IMAGE *image, const char *name, uint64_t *address)
{
    for (int32_t i = 0; i < image->object_count; i++)
        if (look_in_object(image, &image->objects[i], name, address)) return true;
    return false;
}
