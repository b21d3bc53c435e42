/* SPDX-License-Identifier: MIT
 *
 * A 32-bit program as it lies in memory, read from outside: that of a running process, or the one that a file would
 * become; and the symbols that it and its libraries export. Nothing in it is trusted: whatever it says, what is read
 * is bounded, and that something cannot be read is an answer like any other. */
#ifndef KA_CALLER_IMAGE_H
#define KA_CALLER_IMAGE_H

#include <elf.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

enum {
    PAGE_BYTES = 4096,
    PAGES_KEPT = 16,
    PAGES_READ_MAX = 65536,   /* of one image: tables could be laid out to make every look cost a page */
    PROGRAM_HEADERS_MAX = 64, /* of a program */
    OBJECTS_MAX = 256         /* the program and its libraries */
};

struct t_PAGE {
    uint32_t address;
    bool filled;
    uint8_t bytes[PAGE_BYTES];
};

/* The program or a library: what is added to the addresses in its file, and where its dynamic segment lies. */
struct t_OBJECT {
    uint32_t bias;
    uint32_t dynamic;
};

struct t_IMAGE;

/* Where its pages come from: the one that begins at the address. 0 or an errno. */
typedef int t_READ_PAGE(const t_IMAGE *image, uint32_t address, uint8_t *bytes);

struct t_IMAGE {
    t_READ_PAGE *read_page;
    pid_t pid; /* whose memory it is; 0 for a file */
    int fd;    /* of the file, or -1 */
    int32_t pages_read;
    int error; /* errno of the last page that could not be read */
    int32_t program_header_count;
    Elf32_Phdr program_headers[PROGRAM_HEADERS_MAX]; /* those of the program */
    int32_t object_count;
    t_OBJECT objects[OBJECTS_MAX]; /* in the order in which the loader looks for symbols: the program first */
    t_PAGE pages[PAGES_KEPT];
};

/* Null, with the reason in why. Of a process that still loads its libraries, not all objects are found. *error_class
   becomes KA_ARGUMENT when the process cannot be a host, KA_SYSTEM when it cannot be looked into. */
t_IMAGE *open_file_image(const char *path, char *why, size_t size);
t_IMAGE *open_process_image(pid_t pid, int32_t *error_class, char *why, size_t size);

/* image.cpp */
t_IMAGE *create_image(t_READ_PAGE *read_page, pid_t pid, int fd);
void close_image(t_IMAGE *image); /* may be null */

/* All of size bytes, or false. */
bool read_image(t_IMAGE *image, uint32_t address, void *to, size_t size);

/* Copies a zero-terminated text; its length, or why there is none. */
enum { TEXT_UNREADABLE = -1, TEXT_TOO_LONG = -2 };
int32_t read_image_text(t_IMAGE *image, uint32_t address, char *buffer, int32_t size);

/* image_file.cpp: of a file, is some of it memory that the file does not fill? The module may, as it starts. */
bool is_filled_at_start(const t_IMAGE *image, uint32_t address, size_t size);

/* symbols.cpp: the address of the first symbol of that name which an object defines. */
bool find_symbol(t_IMAGE *image, const char *name, uint32_t *address);

/* The value of a tag in an object's dynamic segment. */
bool find_dynamic(t_IMAGE *image, const t_OBJECT *object, int32_t tag, uint32_t *value);

#endif
