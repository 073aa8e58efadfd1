#include "graph/node/user_data.h"

#include <cstddef>
#include <new>

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace orb {

UserDataContainer::UserDataContainer()
    : m_entries(kern::round_up(sizeof(Entry), alignof(std::max_align_t))) {}

UserDataContainer::~UserDataContainer() {
    clear();
}

void UserDataContainer::add(const void* tag, std::shared_ptr<void> object) {
    KERN_CHECK(object);
    // Containers hold a handful of objects, so looking at each is the cheapest index.
    for (const Entry* entry = m_newest; entry; entry = entry->older)
        KERN_CHECK(entry->object != object);

    Entry*& newest_of_tag = m_newest_of_tag[tag];
    m_newest = new (m_entries.alloc()) Entry{std::move(object), tag, m_newest, newest_of_tag};
    newest_of_tag = m_newest;
}

void* UserDataContainer::get(const void* tag) const {
    const auto found = m_newest_of_tag.find(tag);
    return found == m_newest_of_tag.end() || !found->second ? nullptr : found->second->object.get();
}

void UserDataContainer::clear() {
    while (m_newest) {
        Entry* entry = m_newest;
        // Unlinked before it is released: a destructor may look into the container.
        const std::shared_ptr<void> object = std::move(entry->object);
        m_newest = entry->older;
        m_newest_of_tag[entry->tag] = entry->older_of_tag;
        entry->~Entry();
    }
    m_entries.clear();
    std::unordered_map<const void*, Entry*>().swap(m_newest_of_tag);
}

}  // namespace orb
