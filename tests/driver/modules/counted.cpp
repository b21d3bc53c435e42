// SPDX-License-Identifier: MIT
//
// Counts in the segment what the host asks of the heap and gives back, so that the test can read it also after calls
// that never reach a function. The C library's own requests are counted too: the allocator's names are this
// program's. Under the address sanitizer, whose allocator must stay, its hooks do the counting.
#include <malloc.h>
#include <stddef.h>
#include <stdint.h>

#include "driver/modules/hooks.h"
#include "driver/script.h"
#include "ka/api.h"
#include "ka/dll_host.h"

namespace {

driver::HeapCount *heap; // null until the block is attached, and after it was detached

void count_request(const volatile void *block, size_t size)
{
    if (heap == nullptr || block == nullptr) return;
    constexpr int32_t room = sizeof heap->sizes / sizeof heap->sizes[0];
    if (heap->requests < room) heap->sizes[heap->requests] = static_cast<int32_t>(size);
    heap->requests++;
}

void count_free(const volatile void *block)
{
    if (heap != nullptr && block != nullptr) heap->frees++;
}

} // namespace

#ifdef __SANITIZE_ADDRESS__
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void *, size_t),
                                                         void (*)(const volatile void *));
static void install()
{
    __sanitizer_install_malloc_and_free_hooks(count_request, count_free);
}
#else
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);

KA_API void *malloc(size_t size)
{
    void *const block = __libc_malloc(size);
    count_request(block, size);
    return block;
}

KA_API void *calloc(size_t count, size_t size)
{
    void *const block = __libc_calloc(count, size);
    count_request(block, count * size);
    return block;
}

KA_API void *realloc(void *old, size_t size)
{
    void *const block = __libc_realloc(old, size);
    count_free(old);
    count_request(block, size);
    return block;
}

KA_API void free(void *block)
{
    count_free(block);
    __libc_free(block);
}
}
static void install() {}
#endif

namespace driver {

void at_start()
{
    install();
    void *const place = static_cast<char *>(u_get_baseptr()) + heap_offset;
    heap = static_cast<HeapCount *>(place);
}

void at_end()
{
    heap = nullptr;
}

void dump(int32_t, const void *, int32_t) {}

} // namespace driver
