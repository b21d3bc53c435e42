/* SPDX-License-Identifier: MIT
 *
 * The image of a running process. The kernel says where the program's headers are, and the loader keeps a list of
 * what it has loaded, in the order in which it looks for symbols. The file is not needed: it may be gone. */
#include <errno.h>
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

static int read_process_page(const t_IMAGE *image, uint32_t address, uint8_t *bytes)
{
    const struct iovec to = {bytes, PAGE_BYTES};
    const struct iovec from = {reinterpret_cast<void *>(static_cast<uintptr_t>(address)), PAGE_BYTES};
    const ssize_t length = process_vm_readv(image->pid, &to, 1, &from, 1, 0);
    if (length == PAGE_BYTES) return 0;
    return length < 0 ? errno : EFAULT;
}

/* ---- The program ----------------------------------------------------------------------------------------------- */

/* An errno, with nothing read, when the process cannot be looked into. */
static int read_proc_file(pid_t pid, const char *name, void *bytes, size_t size, ssize_t *length)
{
    const int pid_fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (pid_fd == -1) return errno;
    const pid_t number = number_in_proc(pid_fd);
    const int fd = number != 0 ? open_proc_file(number, name) : -1;
    const int open_error = errno;
    close(pid_fd);
    if (fd == -1) return open_error;
    *length = read(fd, bytes, size);
    const int error = *length < 0 ? errno : 0;
    close(fd);
    return error;
}

namespace {
struct t_START {
    uint32_t headers; /* address of the program headers */
    int32_t header_count;
};
} // namespace

static int read_start(pid_t pid, t_START *start)
{
    Elf32_auxv_t entries[64];
    ssize_t length = 0;
    const int error = read_proc_file(pid, "auxv", entries, sizeof entries, &length);
    if (error != 0) return error;
    for (size_t i = 0; i < static_cast<size_t>(length) / sizeof entries[0]; i++) {
        if (entries[i].a_type == AT_PHDR) start->headers = entries[i].a_un.a_val;
        if (entries[i].a_type == AT_PHNUM) start->header_count = static_cast<int32_t>(entries[i].a_un.a_val);
    }
    return 0;
}

/* The program's own headers say where they would lie without a bias. */
static bool find_program(t_IMAGE *image, const t_START *start)
{
    if (start->header_count < 0 || start->header_count > PROGRAM_HEADERS_MAX) return false;
    const size_t size = static_cast<size_t>(start->header_count) * sizeof(Elf32_Phdr);
    if (!read_image(image, start->headers, image->program_headers, size)) return false;
    image->program_header_count = start->header_count;
    t_OBJECT program = {};
    for (int32_t i = 0; i < image->program_header_count; i++) {
        const Elf32_Phdr *header = &image->program_headers[i];
        if (header->p_type == PT_PHDR) program.bias = start->headers - header->p_vaddr;
        if (header->p_type == PT_DYNAMIC) program.dynamic = header->p_vaddr;
    }
    if (program.dynamic == 0) return false;
    program.dynamic += program.bias;
    image->objects[0] = program;
    image->object_count = 1;
    return true;
}

/* ---- Its libraries --------------------------------------------------------------------------------------------- */

namespace {

/* The loader's records, as far as others may rely on them. Both are made of words. */
struct t_LOADED {
    uint32_t version;
    uint32_t first;
};

struct t_LINK {
    uint32_t bias;
    uint32_t name;
    uint32_t dynamic;
    uint32_t next;
};

} // namespace

/* The list begins with the program. It ends at the first record that cannot be read; and it may go in circles. */
static void find_libraries(t_IMAGE *image)
{
    uint32_t address = 0;
    t_LOADED loaded = {};
    if (!find_dynamic(image, &image->objects[0], DT_DEBUG, &address) || address == 0) return;
    if (!read_image(image, address, &loaded, sizeof loaded)) return;
    uint32_t next = loaded.first;
    for (bool is_program = true; next != 0 && image->object_count < OBJECTS_MAX; is_program = false) {
        t_LINK link;
        if (!read_image(image, next, &link, sizeof link)) return;
        if (!is_program) image->objects[image->object_count++] = {link.bias, link.dynamic};
        next = link.next;
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

/* KA_DONE when the process runs a 32-bit program. One that has ended, but was not waited for, has no program. */
static int32_t check_program(pid_t pid, char *why, size_t size)
{
    if (pid <= 0 || (kill(pid, 0) != 0 && errno == ESRCH)) {
        snprintf(why, size, "there is no process %d", pid);
        return KA_ARGUMENT;
    }
    unsigned char ident[EI_NIDENT] = {};
    ssize_t length = 0;
    const int error = read_proc_file(pid, "exe", ident, sizeof ident, &length);
    if (error == ENOENT) {
        snprintf(why, size, "process %d has no program: it has ended, or belongs to the kernel", pid);
        return KA_ARGUMENT;
    }
    if (error != 0) return explain(pid, error, why, size);
    if (ident[EI_CLASS] == ELFCLASS32) return KA_DONE;
    snprintf(why, size, "process %d is a 64-bit program, and hosts are 32-bit programs", pid);
    return KA_ARGUMENT;
}

static int32_t fill_image(t_IMAGE *image, char *why, size_t size)
{
    t_START start = {};
    const int error = read_start(image->pid, &start);
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
    *error_class = check_program(pid, why, size);
    if (*error_class != KA_DONE) return nullptr;
    t_IMAGE *image = create_image(read_process_page, pid, -1);
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
