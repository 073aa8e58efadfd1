// libvekfind in C++17: a class over the C interface, header only, for POSIX systems. vekfind.h is
// the manual: what a score means, which calls may run together, the limits. Here each status but
// VEK_OK is an Error, and what C lets pass is refused: features with NaN or infinity, buffers of a
// wrong length, a predicate without tags or that calls its own group, a scale not above 0. An
// insert of features far from the origin warns. Lack of memory for a result is std::bad_alloc.
#ifndef VEKFIND_VEKFIND_HPP
#define VEKFIND_VEKFIND_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "vekfind/row_checks.hpp"
#include "vekfind/vekfind.h"

namespace vekfind {

// A failed call. The text is the status's name, and the call or, if refused here, what is wrong.
class Error : public std::runtime_error {
public:
    Error(VEKStatus status, const std::string& detail)
        : runtime_error(VEK_errorcode_to_string(status) + (": " + detail)), m_status(status) {}

    VEKStatus status() const { return m_status; }

private:
    VEKStatus m_status;
};

// Elements that somebody else owns: pointer and count, or whatever std::data and std::size take.
template <typename T>
class View {
public:
    View() = default;
    View(T* data, size_t size) : m_data(data), m_size(size) {}
    template <typename C, typename P = decltype(std::data(std::declval<C&>())),
              typename = std::enable_if_t<std::is_convertible_v<P, T*>>>
    View(C&& c) : View(std::data(c), std::size(c)) {}

    T* data() const { return m_data; }
    size_t size() const { return m_size; }

private:
    T* m_data = nullptr;
    size_t m_size = 0;
};

// Rows of features, one behind the other: a view of floats or of 8-bit integers.
struct Features {
    Features(const float* first, size_t count) : data(first), size(count), is_int8(false) {}
    Features(const int8_t* first, size_t count) : data(first), size(count), is_int8(true) {}
    template <typename C, typename = decltype(Features(std::data(std::declval<const C&>()), 0))>
    Features(const C& c) : Features(std::data(c), std::size(c)) {}

    const void* data;
    size_t size;  // in elements
    bool is_int8;
};

struct Settings {
    uint32_t dim = 0;  // elements of a feature
    float scale = 0;   // above 0; similarity is 1 / (1 + exp(scale * squared distance + bias))
    float bias = 0;
    uint32_t tag_size = 0;          // bytes of a tag; 0: no tags
    bool is_int8 = false;           // 8-bit integers instead of floats
    bool allow_non_finite = false;  // features with NaN or infinity pass, far ones without a word
};

struct InsertOptions {
    bool replace = false;    // rows whose ids the group holds are replaced, not refused
    bool encrypted = false;  // the rows are; NaN is not looked for then
};

struct SearchOptions {
    float threshold = 0;     // least similarity
    bool sorted = true;      // best first; otherwise a heap
    bool encrypted = false;  // the queries are; NaN is not looked for then
};

// Query q has places q * k to q * k + k - 1. Unused ones hold VEK_INVALID_ID_VALUE and -1.
struct SearchResult {
    size_t k = 0;
    std::vector<uint64_t> ids;
    std::vector<float> scores;
};

// Whether a query, by its number, may find the row with a tag. An exception ends the search and
// comes out of it. What cannot be copied is passed by std::ref.
using Predicate = std::function<bool(size_t query, View<const uint8_t> tag)>;

// Owns a group. Const calls may run together, but for dumps to one path; all others run alone: see
// "Threads" in vekfind.h. Calls on a group that was moved from give VEK_NULL_POINTER.
class Group {
public:
    explicit Group(const Settings& settings) : Group(settings, nullptr) {}

    // From a file of `dump`, whose rows are not checked for NaN.
    Group(const std::string& path, const Settings& settings) : Group(settings, path.c_str()) {}

    const Settings& settings() const { return m_settings; }

    size_t size() const {
        size_t size;
        check("size", VEK_get_feature_group_size(handle(), &size));
        return size;
    }

    // For each id a row, and a tag where the group has them.
    void insert(View<const uint64_t> ids, Features features, View<const uint8_t> tags = {},
                const InsertOptions& options = {}) {
        const size_t nr = count_rows(features, options.encrypted);
        require(ids.size() == nr, "not one id a row");
        require(tags.size() == nr * uint64_t{m_settings.tag_size}, "not one tag a row");
        if (!m_has_warned && checks_floats(options.encrypted))
            m_has_warned = warn_if_far(features.data, nr, m_settings.dim);
        const VEKFeatureGroupInsertOptions record = {options.encrypted, options.replace};
        check("insert", VEK_insert_features_to_feature_group(
                            handle(), address(features), address(ids), address(tags), nr, &record));
    }

    void erase(View<const uint64_t> ids) {
        check("erase", VEK_delete_features_from_feature_group(handle(), address(ids), ids.size()));
    }

    void reserve(size_t rows) { check("reserve", VEK_reserve_feature_group_size(handle(), rows)); }
    void shrink() { check("shrink", VEK_shrink_feature_group(handle())); }
    void clear() { check("clear", VEK_reset_feature_group(handle())); }

    // The at most k best rows for each query.
    SearchResult search(Features queries, size_t k, const SearchOptions& options = {},
                        const Predicate& predicate = {}) const {
        const size_t places = queries.size / m_settings.dim * k;
        SearchResult result{k, std::vector<uint64_t>(places), std::vector<float>(places)};
        search_into(queries, k, result.ids, result.scores, options, predicate);
        return result;
    }

    // The same into the caller's memory, which a search that fails leaves as it was.
    void search_into(Features queries, size_t k, View<uint64_t> ids, View<float> scores,
                     const SearchOptions& options = {}, const Predicate& predicate = {}) const {
        const size_t nr = count_rows(queries, options.encrypted);
        require(nr == 0 || (k <= ids.size() / nr && k <= scores.size() / nr), "too few places");
        require(!std::isnan(options.threshold), "a threshold that is no number");
        require(!predicate || m_settings.tag_size > 0, "a predicate, but no tags");
        std::exception_ptr thrown;
        std::vector<Question> questions(predicate ? nr : 0,
                                        {&predicate, 0, m_settings.tag_size, &thrown});
        std::vector<void*> contexts;
        for (Question& question : questions) {
            question.query = contexts.size();
            contexts.push_back(&question);
        }
        const VEKFeatureGroupSearchOptions record = {options.sorted, options.encrypted};
        VEKFeatureGroupSearchResult result = {nr, k, scores.data(), ids.data()};
        const VEKContext outer = std::exchange(searching, handle());
        const VEKStatus status = VEK_search_feature_group(
            searching, address(queries), nr, k, options.threshold, contexts.data(),
            predicate ? answer : nullptr, &record, &result);
        searching = outer;
        if (thrown)
            std::rethrow_exception(thrown);
        check("search", status);
    }

    // The mean of encrypted rows, at least one, encrypted.
    std::vector<float> average(Features features) const {
        const size_t nr = m_settings.is_int8 ? 0 : count_rows(features, true);
        std::vector<float> mean(m_settings.dim);
        const VEKFeatureGroupAverageOptions options = {1};
        check("average", VEK_get_average_feature(handle(), address(features), nr, &options,
                                                 reinterpret_cast<uint8_t*>(mean.data())));
        require(nr > 0, "no rows");
        return mean;
    }

    // Writes `path` + ".part", which takes the place of `path` when it is complete and on the disk:
    // a dump that fails leaves the old file. Tags without rows, which would not load, are refused.
    void dump(const std::string& path) const {
        const std::string part = path + ".part";
        const uint64_t row_size = 8 + uint64_t{feature_size()} + m_settings.tag_size;
        struct stat old;
        require(stat(path.c_str(), &old) != 0 || S_ISREG(old.st_mode), "not a regular file");
        try {
            check("dump", VEK_dump_feature_group_to_file(handle(), part.c_str()));
            require(m_settings.tag_size == 0 || size() > 0, "tags without rows");
            const bool whole = flush(part, 40 + row_size * size());
            require(whole && std::rename(part.c_str(), path.c_str()) == 0, "incomplete file",
                    VEK_INTERNAL_ERROR);
        } catch (...) {
            std::remove(part.c_str());
            throw;
        }
    }

private:
    // The predicate's context in C, one for each query.
    struct Question {
        const Predicate* predicate;
        size_t query, tag_size;
        std::exception_ptr* thrown;
    };

    // C makes a status of a std::exception and lets others pass, so the caller's waits here.
    static int answer(void* context, const uint8_t* tag) {
        const Question& question = *static_cast<const Question*>(context);
        try {
            return (*question.predicate)(question.query, {tag, question.tag_size});
        } catch (...) {
            *question.thrown = std::current_exception();
        }
        throw std::exception();
    }

    Group(const Settings& settings, const char* path) : m_settings(settings) {
        require(settings.dim <= UINT32_MAX / 4, "dim too large", VEK_INVALID_SETTINGS);
        require(settings.scale > 0 && settings.scale <= FLT_MAX && std::isfinite(settings.bias),
                "scale must be above 0, bias a number", VEK_INVALID_SETTINGS);
        VEKFeatureGroupSettings record{};
        record.feature_size = feature_size();
        record.tag_size = settings.tag_size;
        record.comparison = {VEK_COMPARISON_SIGMOID_L2, settings.scale, settings.bias};
        record.index_type =
            settings.is_int8 ? VEK_INDEX_BRUTE_FORCE_INT8 : VEK_INDEX_BRUTE_FORCE_FLOAT32;
        VEKContext group = nullptr;
        check("make", path ? VEK_make_feature_group_context_from_file(path, &record, &group)
                           : VEK_make_feature_group_context(&record, &group));
        m_group.reset(group);
    }

    uint32_t feature_size() const { return m_settings.dim * (m_settings.is_int8 ? 1 : 4); }

    // The context. A call from the group's own predicate would wait for itself.
    VEKContext handle() const {
        require(!searching || searching != m_group.get(), "from the group's own predicate");
        return m_group.get();
    }

    bool checks_floats(bool encrypted) const {
        return !m_settings.is_int8 && !encrypted && !m_settings.allow_non_finite;
    }

    // The number of rows, all of which may go into a group or a search.
    size_t count_rows(Features features, bool encrypted) const {
        const size_t dim = m_settings.dim, nr = features.size / dim;
        require(features.is_int8 == m_settings.is_int8, "features of the other type");
        require(features.size % dim == 0, "a part of a row");
        require(address(features) != nullptr, "features", VEK_NULL_POINTER);
        const size_t bad = checks_floats(encrypted) ? first_not_finite(features.data, nr, dim) : nr;
        if (bad < nr)
            throw Error(VEK_INVALID_ARGUMENT, "NaN or infinity: row " + std::to_string(bad));
        return nr;
    }

    // Not null where there is nothing: an empty vector may have no address, and C asks for one.
    template <typename T>
    static const T* address(View<const T> view) {
        static const T NOTHING{};
        return view.size() > 0 ? view.data() : &NOTHING;
    }
    static const uint8_t* address(Features features) {
        return address<uint8_t>({static_cast<const uint8_t*>(features.data), features.size});
    }

    // Whether the file has so many bytes, all of them on the disk.
    static bool flush(const std::string& path, uint64_t size) {
        struct stat status;
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        const bool flushed = fstat(file, &status) == 0 && fsync(file) == 0;
        close(file);
        return flushed && static_cast<uint64_t>(status.st_size) == size;
    }

    static void check(const char* call, VEKStatus s) { require(s == VEK_OK, call, s); }
    static void require(bool met, const char* what, VEKStatus status = VEK_INVALID_ARGUMENT) {
        if (!met)
            throw Error(status, what);
    }

    // The group that this thread searches; where a predicate searches another, that one.
    static inline thread_local VEKContext searching = nullptr;
    Settings m_settings;
    bool m_has_warned = false;
    std::unique_ptr<VEKOpaque, decltype(&VEK_release)> m_group{nullptr, VEK_release};
};

}  // namespace vekfind

#endif
