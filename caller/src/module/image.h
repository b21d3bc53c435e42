/* SPDX-License-Identifier: MIT
 *
 * A program of either word size as it lies in memory, read from outside: that of a running process, or the one that a
 * file would become; and the symbols that it and its libraries export. Nothing in it is trusted: whatever it says,
 * what is read is bounded, and that something cannot be read is an answer like any other. */
#ifndef KA_CALLER_IMAGE_H
#define KA_CALLER_IMAGE_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "machine.h"
#include "program_file.h"

enum {
    PAGE_BYTES = 4096,
    PAGES_KEPT = 16,
    PAGES_READ_MAX = 65536, /* of one image: tables could be laid out to make every look cost a page */
    OBJECTS_MAX = 256       /* the program and its libraries */
};

struct t_PAGE {
    uint64_t address;
    bool filled;
    uint8_t bytes[PAGE_BYTES];
};

/* The program or a library: what is added to the addresses in its file, and where its dynamic segment lies. */
struct t_OBJECT {
    uint64_t bias;
    uint64_t dynamic;
};

/* A place that the loader changes, and the number of the record that says how. */
struct t_RELOCATION {
    uint64_t place;
    uint32_t number;
};

/* Of a file; those of a process are done. */
struct t_RELOCATIONS {
    uint64_t table;
    uint64_t symbols;   /* 0 when there are none */
    t_RELOCATION *list; /* by place, and by number where a place comes several times */
    int32_t count;
};

struct t_IMAGE;

/* Where its pages come from: the one that begins at the address. 0 or an errno. */
typedef int t_READ_PAGE(const t_IMAGE *image, uint64_t address, uint8_t *bytes);

struct t_IMAGE {
    t_READ_PAGE *read_page;
    const t_MACHINE *machine;
    pid_t pid; /* whose memory it is; 0 for a file */
    int fd;    /* from which it is read, or -1 */
    int32_t pages_read;
    int error; /* errno of the last page that could not be read */
    int32_t program_header_count;
    Elf64_Phdr program_headers[PROGRAM_HEADERS_MAX]; /* those of the program */
    int32_t object_count;
    t_OBJECT objects[OBJECTS_MAX]; /* in the order in which the loader looks for symbols: the program first */
    t_RELOCATIONS relocations;
    t_PAGE pages[PAGES_KEPT];
};

/* Null, with the reason in why. Of a process that still loads its libraries, not all objects are found. *error_class
   becomes KA_ARGUMENT when the process cannot be a host, KA_SYSTEM when it cannot be looked into. */
t_IMAGE *open_file_image(const char *path, char *why, size_t size);
t_IMAGE *open_process_image(pid_t pid, int32_t *error_class, char *why, size_t size);

/* image.cpp: fd is closed with the image; -1 for none. Null when there is no memory. */
t_IMAGE *create_image(t_READ_PAGE *read_page, const t_MACHINE *machine, pid_t pid, int fd);
void close_image(t_IMAGE *image); /* may be null */

/* All of size bytes, or false. */
bool read_image(t_IMAGE *image, uint64_t address, void *to, size_t size);

/* Words of the program's own size, one after another. */
enum { WORDS_MAX = 4 };
bool read_words(t_IMAGE *image, uint64_t address, uint64_t *words, int32_t count);

/* An address of the program, whose sums wrap at its word size. */
uint64_t wrapped(const t_IMAGE *image, uint64_t address);

/* Where so many bytes end; the last address is never exceeded. */
inline uint64_t end_of(uint64_t begin, uint64_t size)
{
    return size <= UINT64_MAX - begin ? begin + size : UINT64_MAX;
}

/* Of a file: is some of it memory that the file does not fill? The module may, as it starts. */
bool is_filled_at_start(const t_IMAGE *image, uint64_t address, size_t size);

/* Copies a zero-terminated text; its length, or why there is none. */
enum { TEXT_UNREADABLE = -1, TEXT_TOO_LONG = -2 };
int32_t read_image_text(t_IMAGE *image, uint64_t address, char *buffer, int32_t size);

/* image_process.cpp: writes into the memory of a process. 0 or an errno. */
int write_image(const t_IMAGE *image, uint64_t address, const void *bytes, size_t size);

/* relocations.cpp: reads what the loader would change. False, with the reason in why, when no loader could. */
bool read_relocations(t_IMAGE *image, char *why, size_t size);

/* The pointer that a process has at this place, where the image holds one. False when the loader takes it from a
   library, so that a file does not say it. */
bool relocate(t_IMAGE *image, uint64_t place, uint64_t held, uint64_t *pointer);

/* symbols.cpp: the address of the first symbol of that name which an object defines. */
bool find_symbol(t_IMAGE *image, const char *name, uint64_t *address);

/* The address of a symbol in the table at symbols; false when the program does not define it. */
bool find_numbered_symbol(t_IMAGE *image, uint64_t symbols, uint32_t number, uint64_t *address);

/* The value of a tag in an object's dynamic segment. */
bool find_dynamic(t_IMAGE *image, const t_OBJECT *object, uint64_t tag, uint64_t *value);

#endif
