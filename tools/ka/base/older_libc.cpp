// SPDX-License-Identifier: MIT
//
// Two functions of the C library, for one that is older than the compiler's own runtime, which is linked into ka and
// calls them: with these ka needs no newer C library than the other libraries here. They are linked into ka alone,
// and no library sees them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <link.h>
#include <sys/random.h>

extern "C" {

// Random bits, for std::random_device.
[[gnu::visibility("hidden")]] std::uint32_t arc4random() noexcept
{
    std::uint32_t value;
    if (getrandom(&value, sizeof value, 0) != sizeof value) abort();
    return value;
}

#ifdef DLFO_STRUCT_HAS_EH_DBASE
// The loaded object that has this address, and where its table of exception frames is: 0, or -1 when there is none.
[[gnu::visibility("hidden")]] int _dl_find_object(void *address, dl_find_object *result) noexcept
{
    struct Search {
        std::uintptr_t address;
        dl_find_object *result;
    } search = {reinterpret_cast<std::uintptr_t>(address), result};
    const auto look = [](dl_phdr_info *info, std::size_t, void *user) {
        const auto &wanted = *static_cast<Search *>(user);
        const ElfW(Phdr) *frames = nullptr;
        bool has_address = false;
        std::uintptr_t begin = UINTPTR_MAX;
        std::uintptr_t end = 0;
        for (int i = 0; i < info->dlpi_phnum; i++) {
            const ElfW(Phdr) &part = info->dlpi_phdr[i];
            if (part.p_type == PT_GNU_EH_FRAME) frames = &part;
            if (part.p_type != PT_LOAD) continue;
            const std::uintptr_t from = info->dlpi_addr + part.p_vaddr;
            const std::uintptr_t to = from + part.p_memsz;
            has_address |= wanted.address >= from && wanted.address < to;
            begin = from < begin ? from : begin;
            end = to > end ? to : end;
        }
        if (!has_address || frames == nullptr) return 0;
        *wanted.result = {};
        wanted.result->dlfo_map_start = reinterpret_cast<void *>(begin);
        wanted.result->dlfo_map_end = reinterpret_cast<void *>(end);
        wanted.result->dlfo_eh_frame = reinterpret_cast<void *>(info->dlpi_addr + frames->p_vaddr);
        return 1;
    };
    return dl_iterate_phdr(look, &search) == 1 ? 0 : -1;
}
#endif

} // extern "C"
