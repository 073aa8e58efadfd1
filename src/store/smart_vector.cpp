#include "store/smart_vector.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "store/error.h"

namespace vek {
namespace {

template <typename T>
constexpr bool HOLDS_BYTES = std::is_same_v<T, uint8_t>;

}  // namespace

// The signature of a member for both element types, as errors name it on every target.
#define SMART_VECTOR_FUNCTION(signature)                                 \
    (HOLDS_BYTES<T> ? "void vek::SmartVector<T>::" signature             \
                      " [with T = unsigned char; size_t = unsigned int]" \
                    : "void vek::SmartVector<T>::" signature             \
                      " [with T = long long unsigned int; size_t = unsigned int]")

template <typename T>
void SmartVector<T>::init(size_t record_len) {
    constexpr const char* FUNCTION = SMART_VECTOR_FUNCTION("init(size_t)");
    if (m_initialized)
        throw Error(VEK_INTERNAL_ERROR, "already initialized", FUNCTION);
    m_record_len = record_len;
    m_initialized = true;
}

template <typename T>
typename SmartVector<T>::Growth SmartVector<T>::prepare(size_t records) const {
    constexpr const char* FUNCTION = SMART_VECTOR_FUNCTION("ensure_size(size_t)");
    if (!m_initialized)
        throw Error(VEK_INTERNAL_ERROR, "not initialized", FUNCTION);
    return grown(size_product(m_record_len, records));
}

template <typename T>
typename SmartVector<T>::Growth SmartVector<T>::prepare_doubling(size_t records) const {
    const size_t elements = size_product(m_record_len, records);
    if (elements <= m_data.capacity())
        return std::nullopt;
    return grown(std::max(elements, size_product(m_data.size(), 2)));
}

template <typename T>
typename SmartVector<T>::Growth SmartVector<T>::grown(size_t elements) const {
    if (elements <= m_data.capacity())
        return std::nullopt;
    Buffer data;
    data.reserve(elements);
    data.assign(m_data.begin(), m_data.end());
    return data;
}

template <typename T>
void SmartVector<T>::commit(Growth growth) noexcept {
    if (growth)
        m_data = std::move(*growth);
}

template <typename T>
void SmartVector<T>::ensure_size(size_t records) {
    commit(prepare(records));
}

template <typename T>
void SmartVector<T>::add(const void* records, size_t count) {
    constexpr const char* FUNCTION = SMART_VECTOR_FUNCTION("add(const T*, size_t)");
    if (!m_initialized)
        throw Error(VEK_INTERNAL_ERROR, "not initialized", FUNCTION);
    const size_t added = size_product(m_record_len, count);
    if (added == 0)
        return;
    const size_t old = m_data.size();
    m_data.resize(size_sum(old, added));
    std::memcpy(m_data.data() + old, records, added * sizeof(T));
    m_size += count;
}

template <typename T>
void SmartVector<T>::erase(size_t index) {
    constexpr const char* FUNCTION = SMART_VECTOR_FUNCTION("erase(size_t)");
    if (index >= m_size)
        throw Error(VEK_INTERNAL_ERROR, "erase invalid", FUNCTION);
    const size_t last = m_size - 1;
    if (index < last)
        std::copy_n(m_data.data() + last * m_record_len, m_record_len,
                    m_data.data() + index * m_record_len);
    m_size = last;
    m_data.resize(last * m_record_len);
}

template <typename T>
void SmartVector<T>::shrink() noexcept {
    m_data.shrink_to_fit();  // swallows a failure to allocate
}

template <typename T>
void SmartVector<T>::clear() {
    m_size = 0;
    m_data.clear();
}

template class SmartVector<uint64_t>;
template class SmartVector<uint8_t>;

}  // namespace vek
