/* SPDX-License-Identifier: MIT
 *
 * A file that a module could be. */
#ifndef KA_CALLER_PROGRAM_FILE_H
#define KA_CALLER_PROGRAM_FILE_H

#include <stddef.h>
#include <sys/types.h>

#include "machine.h"

enum { PROGRAM_HEADERS_MAX = 64 }; /* of a program */

/* Why the file cannot be a module; true when nothing speaks against it. */
bool check_module(const char *path, char *why, size_t size);

/* The word size of the program in a file; 0 when that cannot be read. loader becomes the one that it asks for, empty
   when it asks for none. */
int32_t read_loader(const char *path, char *loader, size_t size);

/* Is this the beginning of a program that this machine runs? length is what was read of it. */
bool check_elf_header(const t_ELF_HEADER *header, ssize_t length, char *why, size_t size);

/* The program headers of a file whose header was checked; false, with the reason in why. */
bool read_program_headers(int fd, const t_ELF_HEADER *header, Elf64_Phdr headers[PROGRAM_HEADERS_MAX], int32_t *count,
                          char *why, size_t size);

#endif
