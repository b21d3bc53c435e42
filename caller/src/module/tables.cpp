/* SPDX-License-Identifier: MIT
 *
 * See tables.h: functions with their prototypes, and an index by name. Records are read as the host would use them,
 * including an index that wraps around. A table is refused as a whole only if no working module could have it. */
#include "tables.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/thread.h"
#include "docs.h"
#include "image.h"
#include "ka/dll_block.h"
#include "ka/dll_doc.h"
#include "ka/dll_module.h"

enum {
    FUNCTIONS_MAX = 100000,         /* a table without an end is not a table */
    NAME_BYTES_MAX = 1024,          /* a name, terminator included */
    TABLE_BYTES_MAX = 64 << 20,     /* prototypes and names of all functions */
    PROTOTYPES_READ = DLL_MAX_ARGC, /* of one function: one more than a call has arguments */
    PIECE_BYTES = 64 << 10
};

namespace {

/* What counts of a record: in the module, of its own word size, the name is a pointer. */
struct t_RECORD {
    uint64_t name;
    bool is_named_elsewhere; /* of a file: the loader takes the name from a library */
    int32_t numbers[2];
};
enum { ARG_IDX, ARG_CNT }; /* of a function; its record ends with one word more */
enum { TYPE, MIN_ELCNT };  /* of a prototype */

/* Memory that is handed out in parts, and freed as a whole. */
struct t_PIECE {
    t_PIECE *next;
    size_t used;
    alignas(16) char bytes[PIECE_BYTES];
};

struct t_TABLES {
    ka_tables shown; /* what users hold is its address */
    ka_function *functions;
    int32_t room;             /* for functions */
    const char *const **docs; /* for each function its text and those of its prototypes; null when there are none */
    t_PIECE *pieces;
    size_t bytes;   /* handed out */
    int32_t *index; /* by hash value of the name: a position in functions + 1, or 0 */
    uint32_t index_size;
};

} // namespace

static const t_TABLES *record_of(const ka_tables *tables)
{
    return reinterpret_cast<const t_TABLES *>(tables);
}

/* ---- Memory ---------------------------------------------------------------------------------------------------- */

static bool refuse(char *why, size_t size, const char *reason)
{
    snprintf(why, size, "%s", reason);
    return false;
}

static void *take(t_TABLES *tables, size_t size)
{
    const size_t rounded = (size + 7) / 8 * 8;
    t_PIECE *piece = tables->pieces;
    if (!piece || piece->used + rounded > sizeof piece->bytes) {
        piece = static_cast<t_PIECE *>(malloc(sizeof *piece));
        if (!piece) return nullptr;
        piece->next = tables->pieces;
        piece->used = 0;
        tables->pieces = piece;
    }
    void *taken = piece->bytes + piece->used;
    piece->used += rounded;
    tables->bytes += rounded;
    return taken;
}

static bool make_room(t_TABLES *tables)
{
    if (tables->shown.function_count < tables->room) return true;
    const int32_t room = tables->room == 0 ? 64 : tables->room * 2;
    void *larger = realloc(tables->functions, static_cast<size_t>(room) * sizeof(ka_function));
    if (!larger) return false;
    tables->functions = static_cast<ka_function *>(larger);
    tables->room = room;
    return true;
}

void ka_free_tables(ka_tables *shown)
{
    t_TABLES *tables = reinterpret_cast<t_TABLES *>(shown);
    if (!tables) return;
    for (t_PIECE *piece = tables->pieces; piece;) {
        t_PIECE *next = piece->next;
        free(piece);
        piece = next;
    }
    free(tables->functions);
    free(tables->docs);
    free(tables->index);
    free(tables);
}

/* ---- Reading --------------------------------------------------------------------------------------------------- */

namespace {
struct t_READER {
    t_IMAGE *image;
    t_TABLES *tables;
    uint64_t functions; /* addresses of the two tables */
    uint64_t prototypes;
    bool has_user_words; /* some function's record has one */
    char *why;
    size_t why_size;
};
} // namespace

static size_t prototype_bytes(const t_IMAGE *image)
{
    return word_bytes(image->machine) + sizeof t_RECORD::numbers;
}

static size_t function_bytes(const t_IMAGE *image)
{
    return prototype_bytes(image) + word_bytes(image->machine);
}

/* The word of the module's own in a function's record. */
static uint64_t user_word_of(const t_IMAGE *image, uint64_t functions, int32_t number)
{
    return wrapped(image, functions + static_cast<uint64_t>(number) * function_bytes(image) + prototype_bytes(image));
}

static bool read_record(const t_READER *reader, uint64_t address, size_t size, t_RECORD *record)
{
    t_IMAGE *image = reader->image;
    char bytes[2 * sizeof(uint64_t) + sizeof record->numbers];
    address = wrapped(image, address);
    if (is_filled_at_start(image, address, size)) reader->tables->shown.filled_at_start = 1;
    if (!read_image(image, address, bytes, size)) return false;
    memcpy(record->numbers, bytes + word_bytes(image->machine), sizeof record->numbers);
    record->is_named_elsewhere = !relocate(image, address, word_in(image->machine, bytes), &record->name);
    if (record->is_named_elsewhere) reader->tables->shown.filled_at_start = 1;
    return true;
}

static const char *keep_text(t_TABLES *tables, const char *text, int32_t length)
{
    char *kept = static_cast<char *>(take(tables, static_cast<size_t>(length) + 1));
    if (kept) memcpy(kept, text, static_cast<size_t>(length) + 1);
    return kept;
}

/* The host only prints it, so an unreadable name counts as empty. */
static const char *read_prototype_name(const t_READER *reader, const t_RECORD *record)
{
    char text[NAME_BYTES_MAX];
    if (record->name == 0 || record->is_named_elsewhere) return "";
    const int32_t length = read_image_text(reader->image, record->name, text, sizeof text);
    return length > 0 ? keep_text(reader->tables, text, length) : "";
}

/* The host would die of a prototype that lies nowhere; its kind is one that no call gets past. */
static bool read_prototype(const t_READER *reader, uint64_t address, ka_prototype *prototype)
{
    t_RECORD record;
    if (!read_record(reader, address, prototype_bytes(reader->image), &record))
        record = {0, false, {KIND_UNREADABLE, 0}};
    *prototype = {read_prototype_name(reader, &record), record.numbers[TYPE], record.numbers[MIN_ELCNT]};
    return prototype->name != nullptr;
}

/* One prototype is read even of a function with fewer than none: called without arguments, the host looks at it. */
static bool read_prototypes(const t_READER *reader, const t_RECORD *record, ka_function *function)
{
    int32_t count = record->numbers[ARG_CNT];
    if (count > PROTOTYPES_READ) count = PROTOTYPES_READ;
    function->prototype_count = count;
    if (count < 0) count = 1;
    if (count == 0) return true;
    const size_t size = static_cast<size_t>(count) * sizeof(ka_prototype);
    ka_prototype *prototypes = static_cast<ka_prototype *>(take(reader->tables, size));
    if (!prototypes) return false;
    const uint32_t first = static_cast<uint32_t>(record->numbers[ARG_IDX]);
    for (uint32_t i = 0; i < static_cast<uint32_t>(count); i++) {
        const int64_t index = static_cast<int32_t>(first + i);
        const uint64_t at = reader->prototypes + static_cast<uint64_t>(index) * prototype_bytes(reader->image);
        if (!read_prototype(reader, at, &prototypes[i])) return false;
    }
    function->prototypes = prototypes;
    return true;
}

/* The host reads every name up to the one that it looks for, so all of them must be there. */
static bool read_function_name(const t_READER *reader, const t_RECORD *record, ka_function *function)
{
    char text[NAME_BYTES_MAX] = "";
    const int32_t number = reader->tables->shown.function_count;
    const int32_t length =
        record->is_named_elsewhere ? 0 : read_image_text(reader->image, record->name, text, sizeof text);
    if (length == TEXT_UNREADABLE)
        snprintf(reader->why, reader->why_size, "function %d has a name outside the module", number);
    else if (length == TEXT_TOO_LONG)
        snprintf(reader->why, reader->why_size, "function %d has a name of more than %d bytes", number,
                 NAME_BYTES_MAX - 1);
    if (length < 0) return false;
    function->name = keep_text(reader->tables, text, length);
    return function->name || refuse(reader->why, reader->why_size, "no memory");
}

static bool keep_function(const t_READER *reader, const t_RECORD *record)
{
    t_TABLES *tables = reader->tables;
    if (tables->shown.function_count == FUNCTIONS_MAX)
        return refuse(reader->why, reader->why_size, "KaFuncList has no end within 100000 functions");
    if (tables->bytes > TABLE_BYTES_MAX)
        return refuse(reader->why, reader->why_size, "the tables take more than 64 MiB");
    ka_function function = {};
    if (!read_function_name(reader, record, &function)) return false;
    if (!read_prototypes(reader, record, &function) || !make_room(tables))
        return refuse(reader->why, reader->why_size, "no memory");
    tables->functions[tables->shown.function_count++] = function;
    return true;
}

static void note_user_word(t_READER *reader)
{
    uint64_t held = 0;
    uint64_t pointer = 0;
    const uint64_t place = user_word_of(reader->image, reader->functions, reader->tables->shown.function_count - 1);
    if (reader->has_user_words || !read_words(reader->image, place, &held, 1)) return;
    reader->has_user_words = relocate(reader->image, place, held, &pointer) && pointer != 0;
}

static bool read_functions(t_READER *reader)
{
    const size_t size = function_bytes(reader->image);
    for (uint64_t at = reader->functions;; at += size) {
        t_RECORD record;
        if (!read_record(reader, at, size, &record))
            return refuse(reader->why, reader->why_size, "KaFuncList runs out of the module");
        if (record.name == 0 && !record.is_named_elsewhere) return true;
        if (!keep_function(reader, &record)) return false;
        note_user_word(reader);
    }
}

/* ---- Documentation --------------------------------------------------------------------------------------------- */

/* Null when there is no text, or no memory. */
static const char *read_doc_of(const t_READER *reader, uint64_t place)
{
    char text[DLL_DOC_TEXT_MAX];
    const int32_t length = read_doc_text(reader->image, place, text, sizeof text);
    return length > 0 ? keep_text(reader->tables, text, length) : nullptr;
}

/* Null when the function has none. */
static const char *const *read_docs_of(const t_READER *reader, int32_t number)
{
    t_DOC doc = {};
    const int32_t given = reader->tables->functions[number].prototype_count;
    const int32_t count = given > 0 ? given : 0;
    const uint64_t place = user_word_of(reader->image, reader->functions, number);
    if (!find_doc(reader->image, place, count, &doc)) return nullptr;
    const size_t size = (static_cast<size_t>(count) + 1) * sizeof(const char *);
    const char **texts = static_cast<const char **>(take(reader->tables, size));
    if (!texts) return nullptr;
    memset(texts, 0, size);
    texts[0] = read_doc_of(reader, doc.text);
    for (int32_t i = 0; doc.arguments != 0 && i < count; i++)
        texts[i + 1] =
            read_doc_of(reader, doc.arguments + static_cast<uint64_t>(i) * word_bytes(reader->image->machine));
    return texts;
}

/* After all that a call needs: what cannot be read here is missing here alone. */
static void read_docs(const t_READER *reader)
{
    t_TABLES *tables = reader->tables;
    const int32_t count = tables->shown.function_count;
    if (!reader->has_user_words || count == 0) return;
    tables->docs = static_cast<const char *const **>(calloc(static_cast<size_t>(count), sizeof *tables->docs));
    for (int32_t i = 0; tables->docs && i < count && tables->bytes <= TABLE_BYTES_MAX; i++)
        tables->docs[i] = read_docs_of(reader, i);
}

const char *ka_doc(const ka_tables *shown, const ka_function *function, int32_t argument)
{
    const t_TABLES *tables = record_of(shown);
    if (!tables->docs || argument < 0 || (argument > 0 && argument > function->prototype_count)) return nullptr;
    const char *const *texts = tables->docs[function - shown->functions];
    return texts ? texts[argument] : nullptr;
}

/* ---- The index ------------------------------------------------------------------------------------------------- */

/* A table with free places, at least as many as taken ones, so that every search ends soon. */
static uint32_t hash_of(const char *name, int32_t length)
{
    uint32_t hash = 2166136261; /* the constants of FNV-1a */
    for (int32_t i = 0; i < length; i++)
        hash = (hash ^ static_cast<unsigned char>(name[i])) * 16777619;
    return hash;
}

static bool has_name(const ka_function *function, const char *name, int32_t length)
{
    const size_t own = strlen(function->name);
    return own == static_cast<size_t>(length) && memcmp(function->name, name, own) == 0;
}

/* The place of that name, or the free one where it would be. */
static int32_t *place_of(const t_TABLES *tables, const char *name, int32_t length)
{
    uint32_t at = hash_of(name, length) & (tables->index_size - 1);
    while (tables->index[at] != 0 && !has_name(&tables->functions[tables->index[at] - 1], name, length))
        at = (at + 1) & (tables->index_size - 1);
    return &tables->index[at];
}

/* The first function of a name wins. */
static bool build_index(t_TABLES *tables)
{
    const int32_t count = tables->shown.function_count;
    tables->index_size = 16;
    while (tables->index_size < 2 * static_cast<uint32_t>(count))
        tables->index_size *= 2;
    tables->index = static_cast<int32_t *>(calloc(tables->index_size, sizeof *tables->index));
    if (!tables->index) return false;
    for (int32_t i = 0; i < count; i++) {
        const char *name = tables->functions[i].name;
        int32_t *place = place_of(tables, name, static_cast<int32_t>(strlen(name)));
        if (*place == 0) *place = i + 1;
    }
    return true;
}

const ka_function *look_up(const ka_tables *shown, const char *name, int32_t length)
{
    const t_TABLES *tables = record_of(shown);
    const int32_t place = *place_of(tables, name, length);
    return place == 0 ? nullptr : &tables->functions[place - 1];
}

const ka_function *ka_find_function(const ka_tables *tables, const char *name)
{
    const size_t length = strlen(name);
    return length < NAME_BYTES_MAX ? look_up(tables, name, static_cast<int32_t>(length)) : nullptr;
}

/* ---- All of it ------------------------------------------------------------------------------------------------- */

static bool fill_tables(t_READER *reader)
{
    if (!find_symbol(reader->image, "KaFuncList", &reader->functions))
        return refuse(reader->why, reader->why_size, "not a module: KaFuncList is missing");
    if (!find_symbol(reader->image, "KaArgList", &reader->prototypes))
        return refuse(reader->why, reader->why_size, "not a module: KaArgList is missing");
    if (!read_functions(reader)) return false;
    reader->tables->shown.functions = reader->tables->functions;
    read_docs(reader);
    return build_index(reader->tables) || refuse(reader->why, reader->why_size, "no memory");
}

ka_tables *read_image_tables(t_IMAGE *image, char *why, size_t size)
{
    t_TABLES *tables = static_cast<t_TABLES *>(calloc(1, sizeof *tables));
    if (!tables) {
        refuse(why, size, "no memory");
        return nullptr;
    }
    t_READER reader = {image, tables, 0, 0, false, why, size};
    if (fill_tables(&reader)) return &tables->shown;
    ka_free_tables(&tables->shown);
    return nullptr;
}

ka_tables *ka_read_tables(const char *module, char *why, int32_t size)
{
    HOLD_CANCELLATION;
    t_IMAGE *image = open_file_image(module, why, static_cast<size_t>(size));
    ka_tables *tables = image ? read_image_tables(image, why, static_cast<size_t>(size)) : nullptr;
    close_image(image);
    return tables;
}
