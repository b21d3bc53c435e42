/* SPDX-License-Identifier: MIT
 *
 * A file that a module could be. */
#ifndef KA_CALLER_PROGRAM_FILE_H
#define KA_CALLER_PROGRAM_FILE_H

#include <elf.h>
#include <stddef.h>
#include <sys/types.h>

/* Why the file cannot be a module; true when nothing speaks against it. */
bool check_module(const char *path, char *why, size_t size);

/* The loader that the file asks for; false when it asks for none. */
bool read_loader(const char *path, char *loader, size_t size);

/* Is this the beginning of a 32-bit program? length is what was read of it. */
bool check_elf_header(const Elf32_Ehdr *header, ssize_t length, char *why, size_t size);

#endif
