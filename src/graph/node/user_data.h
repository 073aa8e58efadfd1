// A store of objects by type: whoever owns a container lets others attach data to it without
// knowing them. The key of a type is the address of a static tag. Not locked: the owner guards it.
#pragma once

#include <memory>
#include <unordered_map>

#include "graph/node/chunk_pool.h"

namespace orb {

class UserDataContainer {
public:
    UserDataContainer();
    ~UserDataContainer();
    UserDataContainer(const UserDataContainer&) = delete;
    UserDataContainer& operator=(const UserDataContainer&) = delete;

    // Appends to the list of the tag; an object that is here already stops the process.
    void add(const void* tag, std::shared_ptr<void> object);
    // The newest object of the tag, or null.
    void* get(const void* tag) const;

    // Forms for a type T with a static member `TAG` whose address is the key.
    template <typename T>
    T* get() const {
        return static_cast<T*>(get(&T::TAG));
    }
    // The object of type T, made by `make()` (a shared_ptr<T>) at first use.
    template <typename T, typename Make>
    T& get_or_make(Make&& make);
    // Releases the objects, the newest first: one may rely on those attached before it.
    void clear();

private:
    struct Entry {
        std::shared_ptr<void> object;
        const void* tag;
        Entry* older;         // of all entries
        Entry* older_of_tag;  // of this tag's list
    };

    ChunkPool m_entries;
    Entry* m_newest = nullptr;
    std::unordered_map<const void*, Entry*> m_newest_of_tag;
};

template <typename T, typename Make>
T& UserDataContainer::get_or_make(Make&& make) {
    if (T* existing = get<T>())
        return *existing;
    std::shared_ptr<T> made = make();
    add(&T::TAG, made);
    return *made;
}

}  // namespace orb
