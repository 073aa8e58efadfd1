#include "search/output.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>

#include "common/failure.h"
#include "common/json.h"
#include "common/npy.h"
#include "common/output_file.h"
#include "common/text.h"
#include "features/feature_file.h"
#include "search/zip.h"

namespace search {

namespace {

// Of a float, enough digits to read the same number again; of a double, 17 are.
constexpr int FLOAT_DIGITS = 9, DOUBLE_DIGITS = 17;
constexpr int DIGITS_FOR_PEOPLE = 6;

std::string number_text(double number, int digits) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.*g", digits, number);
    return text;
}

// Calls with query, rank from 1, and match.
template <typename Function>
void for_each_match(const Result& result, const Function& function) {
    for (size_t query = 0; query < result.nr_query; ++query) {
        const Match* matches = result.of_query(query);
        for (size_t place = 0; place < result.k && matches[place].is_used(); ++place)
            function(query, place + 1, matches[place]);
    }
}

void write_table(std::ostream& out, const Result& result, bool has_scores) {
    std::vector<std::string> heads = {"query", "rank", "id"};
    if (has_scores)
        heads.push_back("similarity");
    heads.push_back("squared distance");
    tools::Table table(std::string(heads.size(), 'r'), heads);
    for_each_match(result, [&](size_t query, size_t rank, const Match& match) {
        std::vector<std::string> cells = {std::to_string(query), std::to_string(rank),
                                          std::to_string(match.id)};
        if (has_scores)
            cells.push_back(number_text(static_cast<double>(match.score), DIGITS_FOR_PEOPLE));
        cells.push_back(number_text(match.squared_distance, DIGITS_FOR_PEOPLE));
        table.add(std::move(cells));
    });
    table.print(out);
}

void write_csv(std::ostream& out, const Result& result, bool has_scores) {
    out << (has_scores ? "query,rank,id,score,squared_distance\n"
                       : "query,rank,id,squared_distance\n");
    for_each_match(result, [&](size_t query, size_t rank, const Match& match) {
        out << query << ',' << rank << ',' << match.id << ',';
        if (has_scores)
            out << number_text(static_cast<double>(match.score), FLOAT_DIGITS) << ',';
        out << number_text(match.squared_distance, DOUBLE_DIGITS) << '\n';
    });
}

void write_json(std::ostream& out, const Result& result, bool has_scores) {
    tools::JsonWriter json(out);
    json.begin_object();
    json.key("k").value(uint64_t{result.k});
    json.key("queries").begin_array();
    for (size_t query = 0; query < result.nr_query; ++query) {
        const Match* matches = result.of_query(query);
        json.begin_array();
        for (size_t place = 0; place < result.k && matches[place].is_used(); ++place) {
            json.begin_object();
            json.key("id").value(matches[place].id);
            if (has_scores)
                json.key("score").value(static_cast<double>(matches[place].score));
            json.key("squared_distance").value(matches[place].squared_distance, DOUBLE_DIGITS);
            json.end_object();
        }
        json.end_array();
    }
    json.end_array();
    json.end_object();
    json.finish();
}

// One field of all places as an array with a row for each query.
template <typename T>
ZipMember npy_member(const char* name, npy::ElementType type, const Result& result,
                     T Match::*field) {
    ZipMember member{name, npy::header_text(type, {result.nr_query, result.k})};
    const size_t header_size = member.bytes.size();
    member.bytes.resize(header_size + result.matches.size() * sizeof(T));
    char* bytes = member.bytes.data() + header_size;
    for (const Match& match : result.matches) {
        std::memcpy(bytes, &(match.*field), sizeof(T));
        bytes += sizeof(T);
    }
    return member;
}

void write_npz(tools::OutputFile& file, const Result& result, bool has_scores) {
    std::vector<ZipMember> members;
    members.push_back(npy_member("ids.npy", npy::ElementType::UINT64, result, &Match::id));
    if (has_scores)
        members.push_back(
            npy_member("scores.npy", npy::ElementType::FLOAT32, result, &Match::score));
    members.push_back(npy_member("squared_distances.npy", npy::ElementType::FLOAT64, result,
                                 &Match::squared_distance));
    write_zip(members, [&](const void* bytes, size_t count) { file.write(bytes, count); });
}

// For each query k and the ids, as signed 32-bit numbers; -1 in unused places.
void write_ivecs(tools::OutputFile& file, const Result& result) {
    std::vector<int32_t> record(1 + result.k, static_cast<int32_t>(result.k));
    for (size_t query = 0; query < result.nr_query; ++query) {
        for (size_t place = 0; place < result.k; ++place) {
            const Match& match = result.of_query(query)[place];
            if (match.is_used() && match.id > INT32_MAX)
                throw tools::BadFile(file.path() + ": query " + std::to_string(query) +
                                     " found id " + std::to_string(match.id) +
                                     ", and .ivecs ends at 2147483647");
            record[1 + place] = match.is_used() ? static_cast<int32_t>(match.id) : -1;
        }
        file.write(record.data(), record.size() * sizeof(int32_t));
    }
}

}  // namespace

void require_known_format(const std::string& path) {
    const std::string extension = features::lower_case_suffix(path);
    for (const char* known : {".txt", ".csv", ".json", ".npz", ".ivecs"})
        if (extension == known)
            return;
    throw tools::BadUse(path + ": results are written as .txt, .csv, .json, .npz or .ivecs");
}

std::unique_ptr<tools::OutputFile> open_output(const std::string& path) {
    return path.empty() ? nullptr : std::make_unique<tools::OutputFile>(path);
}

void write_result(tools::OutputFile* file, const Result& result, bool has_scores) {
    if (file == nullptr) {
        write_table(std::cout, result, has_scores);
        if (!std::cout.flush())
            throw tools::BadFile("the output cannot be written");
        return;
    }
    const std::string extension = features::lower_case_suffix(file->path());
    if (extension == ".npz") {
        write_npz(*file, result, has_scores);
    } else if (extension == ".ivecs") {
        write_ivecs(*file, result);
    } else {
        std::ostringstream text;
        const auto write =
            extension == ".csv" ? write_csv : (extension == ".json" ? write_json : write_table);
        write(text, result, has_scores);
        file->write(text.str());
    }
    file->commit();
}

}  // namespace search
