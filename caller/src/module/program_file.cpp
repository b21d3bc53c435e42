/* SPDX-License-Identifier: MIT
 *
 * Looks at a module's file before it is started, since the kernel's answers do not say what is wrong: a 64-bit
 * program would start and never answer, and a missing loader is reported as if the module were missing. */
#include "program_file.h"

#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/fd.h"

static bool refuse(char *why, size_t size, const char *reason)
{
    snprintf(why, size, "%s", reason);
    return false;
}

bool check_elf_header(const Elf32_Ehdr *header, ssize_t length, char *why, size_t size)
{
    if (length < EI_NIDENT || memcmp(header->e_ident, ELFMAG, SELFMAG) != 0)
        return refuse(why, size, "not an ELF file");
    if (header->e_ident[EI_CLASS] == ELFCLASS64)
        return refuse(why, size, "a 64-bit program, and modules are 32-bit programs");
    if (length < static_cast<ssize_t>(sizeof *header)) return refuse(why, size, "a cut off ELF file");
    if (header->e_machine != EM_386) {
        snprintf(why, size, "a program for another processor (ELF machine %d)", header->e_machine);
        return false;
    }
    if (header->e_type != ET_EXEC && header->e_type != ET_DYN)
        return refuse(why, size, "an ELF file but not a program");
    return true;
}

/* Length read, or -1 when the file may be run but not read: then the kernel has to judge. */
static ssize_t read_header(const char *path, Elf32_Ehdr *header)
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
    Elf32_Ehdr header;
    const ssize_t length = read_header(path, &header);
    return length < 0 || check_elf_header(&header, length, why, size);
}

static bool find_loader(int fd, char *loader, size_t size)
{
    Elf32_Ehdr header;
    if (pread(fd, &header, sizeof header, 0) != static_cast<ssize_t>(sizeof header)) return false;
    for (int i = 0; i < header.e_phnum; i++) {
        Elf32_Phdr program_header;
        const off_t at = static_cast<off_t>(header.e_phoff) + static_cast<off_t>(i) * header.e_phentsize;
        if (pread(fd, &program_header, sizeof program_header, at) != static_cast<ssize_t>(sizeof program_header))
            return false;
        if (program_header.p_type != PT_INTERP) continue;
        const size_t wanted = program_header.p_filesz < size - 1 ? program_header.p_filesz : size - 1;
        const ssize_t length = pread(fd, loader, wanted, static_cast<off_t>(program_header.p_offset));
        loader[length > 0 ? length : 0] = '\0';
        return length > 0;
    }
    return false;
}

bool read_loader(const char *path, char *loader, size_t size)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd == -1) return false;
    const bool found = find_loader(fd, loader, size);
    close(fd);
    return found;
}
