/* SPDX-License-Identifier: MIT
 *
 * Looks at a module's file before it is started, since the kernel's answers do not say what is wrong: a program of
 * another kind could start and never answer, and a missing loader is reported as if the module were missing. */
#include "program_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/fd.h"

static_assert(sizeof(off_t) == sizeof(uint64_t), "files can be larger than a 32-bit program");

static bool refuse(char *why, size_t size, const char *reason)
{
    snprintf(why, size, "%s", reason);
    return false;
}

bool check_elf_header(const t_ELF_HEADER *header, ssize_t length, char *why, size_t size)
{
    if (length < EI_NIDENT || memcmp(header->ident, ELFMAG, SELFMAG) != 0)
        return refuse(why, size, "not an ELF file");
    const size_t wanted = header->ident[EI_CLASS] == ELFCLASS64 ? sizeof header->wide : sizeof header->narrow;
    if (static_cast<size_t>(length) < wanted) return refuse(why, size, "a cut off ELF file");
    const Elf64_Ehdr own = widened_header(header);
    if (!find_machine(header)) {
        snprintf(why, size, "a program for another processor (ELF machine %d)", own.e_machine);
        return false;
    }
    if (own.e_type != ET_EXEC && own.e_type != ET_DYN) return refuse(why, size, "an ELF file but not a program");
    return true;
}

bool read_program_headers(int fd, const t_ELF_HEADER *header, Elf64_Phdr headers[PROGRAM_HEADERS_MAX], int32_t *count,
                          char *why, size_t size)
{
    const Elf64_Ehdr own = widened_header(header);
    const t_MACHINE *machine = find_machine(header);
    if (own.e_phentsize != program_header_bytes(machine) || own.e_phnum > PROGRAM_HEADERS_MAX)
        return refuse(why, size, "an ELF file with impossible program headers");
    char bytes[PROGRAM_HEADERS_MAX * sizeof(Elf64_Phdr)];
    const size_t wanted = own.e_phnum * program_header_bytes(machine);
    const ssize_t length = own.e_phoff > INT64_MAX ? 0 : pread(fd, bytes, wanted, static_cast<off_t>(own.e_phoff));
    if (length != static_cast<ssize_t>(wanted)) return refuse(why, size, "a cut off ELF file");
    *count = own.e_phnum;
    widen_program_headers(machine, bytes, *count, headers);
    return true;
}

/* Length read, or -1 when the file may be run but not read: then the kernel has to judge. */
static ssize_t read_header(const char *path, t_ELF_HEADER *header)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd == -1) return -1;
    const ssize_t length = pread(fd, header, sizeof *header, 0);
    close(fd);
    return length;
}

bool check_module(const char *path, char *why, size_t size)
{
    struct stat status;
    if (stat(path, &status) != 0) return refuse(why, size, errno == ENOENT ? "no such file" : errno_text(errno));
    if (S_ISDIR(status.st_mode)) return refuse(why, size, "a directory");
    if (!S_ISREG(status.st_mode)) return refuse(why, size, "not a regular file");
    if (faccessat(AT_FDCWD, path, X_OK, AT_EACCESS) != 0)
        return refuse(why, size, errno == EACCES ? "not executable" : errno_text(errno));
    t_ELF_HEADER header = {};
    const ssize_t length = read_header(path, &header);
    return length < 0 || check_elf_header(&header, length, why, size);
}

static void read_text(int fd, const Elf64_Phdr *header, char *text, size_t size)
{
    const size_t wanted = header->p_filesz < size - 1 ? static_cast<size_t>(header->p_filesz) : size - 1;
    const ssize_t length = pread(fd, text, wanted, static_cast<off_t>(header->p_offset));
    text[length > 0 ? length : 0] = '\0';
}

static int32_t find_loader(int fd, char *loader, size_t size)
{
    char ignored[8];
    t_ELF_HEADER header = {};
    Elf64_Phdr headers[PROGRAM_HEADERS_MAX];
    int32_t count = 0;
    const ssize_t length = pread(fd, &header, sizeof header, 0);
    if (!check_elf_header(&header, length, ignored, sizeof ignored)) return 0;
    read_program_headers(fd, &header, headers, &count, ignored, sizeof ignored);
    for (int32_t i = 0; i < count && loader[0] == '\0'; i++)
        if (headers[i].p_type == PT_INTERP) read_text(fd, &headers[i], loader, size);
    return find_machine(&header)->bits;
}

int32_t read_loader(const char *path, char *loader, size_t size)
{
    loader[0] = '\0';
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd == -1) return 0;
    const int32_t bits = find_loader(fd, loader, size);
    close(fd);
    return bits;
}
