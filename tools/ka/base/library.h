// SPDX-License-Identifier: MIT
//
// A shared library that few runs of ka need: opened by the first of them that does, so that the others do not wait
// until it is loaded.
#ifndef KA_TOOL_BASE_LIBRARY_H
#define KA_TOOL_BASE_LIBRARY_H

#include <dlfcn.h>
#include <string>

class Library {
public:
    explicit Library(const char *name) : handle_(dlopen(name, RTLD_NOW | RTLD_LOCAL))
    {
        if (handle_ == nullptr) note_why();
    }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;

    // Whether the library and all functions that were asked for are there; else why_not says what is missing.
    bool is_whole() const { return why_not_.empty(); }
    const std::string &why_not() const { return why_not_; }

protected:
    // Becomes a pointer to a function of whatever type it is stored in.
    struct Function {
        void *address;
        template <typename Type>
        operator Type *() const
        {
            return reinterpret_cast<Type *>(address);
        }
    };
    Function find(const char *name)
    {
        void *address = handle_ == nullptr ? nullptr : dlsym(handle_, name);
        if (address == nullptr && is_whole()) note_why();
        return {address};
    }

private:
    void note_why()
    {
        const char *why = dlerror();
        why_not_ = why != nullptr ? why : "unknown";
    }

    void *handle_; // open until the process ends
    std::string why_not_;
};

#endif
