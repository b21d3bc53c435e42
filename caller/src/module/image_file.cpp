/* SPDX-License-Identifier: MIT
 *
 * The image that a module's file would become: as if it were loaded at the addresses that it names. Program headers
 * alone are used, for sections can be stripped. Its pages are those of the file; what the loader would change in them
 * is in relocations.cpp. */
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/fd.h"
#include "image.h"
#include "program_file.h"

/* The kernel maps whole pages. */
static uint64_t page_of(uint64_t address)
{
    return address / PAGE_BYTES * PAGE_BYTES;
}

static bool touches(const Elf64_Phdr *header, uint64_t page)
{
    const uint64_t end = end_of(header->p_vaddr, header->p_memsz);
    return header->p_type == PT_LOAD && page >= page_of(header->p_vaddr) && page < end;
}

/* The part of a page that the file holds. */
static int read_held_part(const t_IMAGE *image, const Elf64_Phdr *header, uint64_t page, uint8_t *bytes)
{
    const uint64_t end = end_of(header->p_vaddr, header->p_filesz);
    const uint64_t page_end = end_of(page, PAGE_BYTES);
    const uint64_t from = page > header->p_vaddr ? page : header->p_vaddr;
    const uint64_t to = page_end < end ? page_end : end;
    if (from >= to) return 0;
    const uint64_t offset = end_of(header->p_offset, from - header->p_vaddr);
    if (offset > INT64_MAX) return EFBIG;
    const size_t wanted = static_cast<size_t>(to - from);
    const ssize_t length = pread(image->fd, bytes + (from - page), wanted, static_cast<off_t>(offset));
    if (length < 0) return errno;
    return static_cast<size_t>(length) == wanted ? 0 : ENODATA;
}

static int read_file_page(const t_IMAGE *image, uint64_t address, uint8_t *bytes)
{
    int error = EFAULT;
    memset(bytes, 0, PAGE_BYTES);
    for (int32_t i = 0; i < image->program_header_count; i++) {
        if (!touches(&image->program_headers[i], address)) continue;
        error = read_held_part(image, &image->program_headers[i], address, bytes);
        if (error != 0) return error;
    }
    return error;
}

static bool find_program(t_IMAGE *image, char *why, size_t size)
{
    for (int32_t i = 0; i < image->program_header_count; i++) {
        if (image->program_headers[i].p_type != PT_DYNAMIC) continue;
        image->objects[0] = {0, image->program_headers[i].p_vaddr};
        image->object_count = 1;
        return true;
    }
    snprintf(why, size, "a program without dynamic symbols");
    return false;
}

/* -1 with the reason in why. A FIFO would make the open wait, and a device could do anything. */
static int open_regular_file(const char *path, char *why, size_t size)
{
    struct stat status;
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd == -1) {
        snprintf(why, size, "%s", errno == ENOENT ? "no such file" : errno_text(errno));
        return -1;
    }
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) return fd;
    snprintf(why, size, "%s", S_ISDIR(status.st_mode) ? "a directory" : "not a regular file");
    close(fd);
    return -1;
}

/* The descriptor is the image's. */
static t_IMAGE *create_file_image(int fd, const t_MACHINE *machine, char *why, size_t size)
{
    t_IMAGE *image = create_image(read_file_page, machine, 0, fd);
    if (image) return image;
    snprintf(why, size, "no memory");
    close(fd);
    return nullptr;
}

t_IMAGE *open_file_image(const char *path, char *why, size_t size)
{
    t_ELF_HEADER header = {};
    const int fd = open_regular_file(path, why, size);
    if (fd == -1) return nullptr;
    if (!check_elf_header(&header, pread(fd, &header, sizeof header, 0), why, size)) {
        close(fd);
        return nullptr;
    }
    t_IMAGE *image = create_file_image(fd, find_machine(&header), why, size);
    if (!image) return nullptr;
    if (read_program_headers(fd, &header, image->program_headers, &image->program_header_count, why, size) &&
        find_program(image, why, size) && read_relocations(image, why, size))
        return image;
    close_image(image);
    return nullptr;
}
