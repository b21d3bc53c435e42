/* SPDX-License-Identifier: MIT
 *
 * The image of a running process. The kernel says where the program's headers are, and the loader keeps a list of
 * what it has loaded, in the order in which it looks for symbols. The file is not needed: it may be gone. */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "base/fd.h"
#include "base/proc.h"
#include "image.h"
#include "ka/caller.h"

/* ---- Its memory ------------------------------------------------------------------------------------------------ */

/* 0 with a descriptor of /proc/PID/NAME, or an errno. */
static int open_file_of(pid_t pid, const char *name, int flags, int *fd)
{
    const int pid_fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (pid_fd == -1) return errno;
    const pid_t number = number_in_proc(pid_fd);
    *fd = number != 0 ? open_proc_file(number, name, flags) : -1;
    const int error = *fd == -1 ? errno : 0;
    close(pid_fd);
    return error;
}

/* A 32-bit program can give the kernel no address of a 64-bit one, but as an offset in the file of its memory. */
static bool can_address(const t_MACHINE *machine)
{
    return word_bytes(machine) <= sizeof(void *);
}

/* Of that file's: the end is that of the process, and an address where nothing is cannot be read. */
static int error_of_transfer(ssize_t length, size_t wanted)
{
    if (length == 0) return ESRCH;
    if (length < 0 && errno != EIO) return errno;
    return length == static_cast<ssize_t>(wanted) ? 0 : EFAULT;
}

static int read_process_page(const t_IMAGE *image, uint64_t address, uint8_t *bytes)
{
    if (!can_address(image->machine))
        return error_of_transfer(pread(image->fd, bytes, PAGE_BYTES, static_cast<off_t>(address)), PAGE_BYTES);
    const struct iovec to = {bytes, PAGE_BYTES};
    const struct iovec from = {reinterpret_cast<void *>(static_cast<uintptr_t>(address)), PAGE_BYTES};
    const ssize_t length = process_vm_readv(image->pid, &to, 1, &from, 1, 0);
    if (length == PAGE_BYTES) return 0;
    return length < 0 ? errno : EFAULT;
}

static int write_memory_file(pid_t pid, uint64_t address, const void *bytes, size_t size)
{
    int fd = -1;
    int error = open_file_of(pid, "mem", O_WRONLY, &fd);
    if (error != 0) return error;
    error = error_of_transfer(pwrite(fd, bytes, size, static_cast<off_t>(address)), size);
    close(fd);
    return error;
}

int write_image(const t_IMAGE *image, uint64_t address, const void *bytes, size_t size)
{
    if (!can_address(image->machine)) return write_memory_file(image->pid, address, bytes, size);
    const struct iovec from = {const_cast<void *>(bytes), size};
    const struct iovec to = {reinterpret_cast<void *>(static_cast<uintptr_t>(address)), size};
    const ssize_t length = process_vm_writev(image->pid, &from, 1, &to, 1, 0);
    if (length == static_cast<ssize_t>(size)) return 0;
    return length < 0 ? errno : EFAULT;
}

/* ---- The program ----------------------------------------------------------------------------------------------- */

/* An errno, with nothing read, when the process cannot be looked into. */
static int read_proc_file(pid_t pid, const char *name, void *bytes, size_t size, ssize_t *length)
{
    int fd = -1;
    int error = open_file_of(pid, name, O_RDONLY, &fd);
    if (error != 0) return error;
    *length = read(fd, bytes, size);
    error = *length < 0 ? errno : 0;
    close(fd);
    return error;
}

namespace {
struct t_START {
    uint64_t headers; /* address of the program headers */
    uint64_t header_count;
};
} // namespace

static int read_start(const t_IMAGE *image, t_START *start)
{
    char entries[64 * sizeof(Elf64_auxv_t)]; /* each is two words */
    ssize_t length = 0;
    const int error = read_proc_file(image->pid, "auxv", entries, sizeof entries, &length);
    if (error != 0) return error;
    const size_t width = word_bytes(image->machine);
    for (size_t at = 0; at + 2 * width <= static_cast<size_t>(length); at += 2 * width) {
        const uint64_t type = word_in(image->machine, entries + at);
        const uint64_t value = word_in(image->machine, entries + at + width);
        if (type == AT_PHDR) start->headers = value;
        if (type == AT_PHNUM) start->header_count = value;
    }
    return 0;
}

/* The program's own headers say where they would lie without a bias. */
static bool find_program(t_IMAGE *image, const t_START *start)
{
    if (start->header_count > PROGRAM_HEADERS_MAX) return false;
    const int32_t count = static_cast<int32_t>(start->header_count);
    char bytes[PROGRAM_HEADERS_MAX * sizeof(Elf64_Phdr)];
    const size_t size = static_cast<size_t>(count) * program_header_bytes(image->machine);
    if (!read_image(image, start->headers, bytes, size)) return false;
    image->program_header_count = count;
    widen_program_headers(image->machine, bytes, count, image->program_headers);
    t_OBJECT program = {};
    for (int32_t i = 0; i < image->program_header_count; i++) {
        const Elf64_Phdr *header = &image->program_headers[i];
        if (header->p_type == PT_PHDR) program.bias = wrapped(image, start->headers - header->p_vaddr);
        if (header->p_type == PT_DYNAMIC) program.dynamic = header->p_vaddr;
    }
    if (program.dynamic == 0) return false;
    program.dynamic += program.bias;
    image->objects[0] = program;
    image->object_count = 1;
    return true;
}

/* ---- Its libraries --------------------------------------------------------------------------------------------- */

/* The loader's records, as far as others may rely on them, are made of words. */
enum { LOADED_VERSION, LOADED_FIRST, LOADED_WORDS };
enum { LINK_BIAS, LINK_NAME, LINK_DYNAMIC, LINK_NEXT, LINK_WORDS };

/* The list begins with the program. It ends at the first record that cannot be read; and it may go in circles. */
static void find_libraries(t_IMAGE *image)
{
    uint64_t address = 0;
    uint64_t loaded[LOADED_WORDS];
    if (!find_dynamic(image, &image->objects[0], DT_DEBUG, &address) || address == 0) return;
    if (!read_words(image, address, loaded, LOADED_WORDS)) return;
    uint64_t next = loaded[LOADED_FIRST];
    for (bool is_program = true; next != 0 && image->object_count < OBJECTS_MAX; is_program = false) {
        uint64_t link[LINK_WORDS];
        if (!read_words(image, next, link, LINK_WORDS)) return;
        if (!is_program) image->objects[image->object_count++] = {link[LINK_BIAS], link[LINK_DYNAMIC]};
        next = link[LINK_NEXT];
    }
}

/* ---- Why not --------------------------------------------------------------------------------------------------- */

static int32_t explain(pid_t pid, int error, char *why, size_t size)
{
    if (error == EPERM || error == EACCES) {
        snprintf(why, size,
                 "no permission to look into process %d: be its user or root, and see "
                 "/proc/sys/kernel/yama/ptrace_scope",
                 pid);
        return KA_SYSTEM;
    }
    if (error == ESRCH) {
        snprintf(why, size, "process %d has ended", pid);
        return KA_ARGUMENT;
    }
    snprintf(why, size, "cannot look into process %d: %s", pid, errno_text(error));
    return KA_SYSTEM;
}

/* KA_DONE, with the beginning of the program, when this machine could run it as a host. A process that has ended, but
   was not waited for, has no program. */
static int32_t check_program(pid_t pid, t_ELF_HEADER *header, char *why, size_t size)
{
    if (pid <= 0 || (kill(pid, 0) != 0 && errno == ESRCH)) {
        snprintf(why, size, "there is no process %d", pid);
        return KA_ARGUMENT;
    }
    char reason[80];
    ssize_t length = 0;
    const int error = read_proc_file(pid, "exe", header, sizeof *header, &length);
    if (error == ENOENT) {
        snprintf(why, size, "process %d has no program: it has ended, or belongs to the kernel", pid);
        return KA_ARGUMENT;
    }
    if (error != 0) return explain(pid, error, why, size);
    if (check_elf_header(header, length, reason, sizeof reason)) return KA_DONE;
    snprintf(why, size, "process %d is %s", pid, reason);
    return KA_ARGUMENT;
}

static int32_t fill_image(t_IMAGE *image, char *why, size_t size)
{
    t_START start = {};
    int error = can_address(image->machine) ? 0 : open_file_of(image->pid, "mem", O_RDONLY, &image->fd);
    if (error == 0) error = read_start(image, &start);
    if (error != 0) return explain(image->pid, error, why, size);
    if (find_program(image, &start)) {
        find_libraries(image);
        return KA_DONE;
    }
    if (image->error != 0) return explain(image->pid, image->error, why, size);
    snprintf(why, size, "process %d runs a program without dynamic symbols", image->pid);
    return KA_ARGUMENT;
}

t_IMAGE *open_process_image(pid_t pid, int32_t *error_class, char *why, size_t size)
{
    t_ELF_HEADER header = {};
    *error_class = check_program(pid, &header, why, size);
    if (*error_class != KA_DONE) return nullptr;
    t_IMAGE *image = create_image(read_process_page, find_machine(&header), pid, -1);
    if (!image) {
        snprintf(why, size, "no memory");
        *error_class = KA_SYSTEM;
        return nullptr;
    }
    *error_class = fill_image(image, why, size);
    if (*error_class == KA_DONE) return image;
    close_image(image);
    return nullptr;
}
