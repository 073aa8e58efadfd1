#include "store/stream.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <new>

#include "tests/error_text.h"
#include "tests/store/file_test_util.h"

namespace {

using vek::open_input_stream;
using vek::open_output_stream;

const std::string END_OF_FILE =
    "Error[6] Reaches EOF unexpectedly. The file is broken. at "
    "[virtual void {anonymous}::FileInputStream::read(void*, size_t)]";

std::string read_text(vek::InputStream& stream, size_t bytes) {
    std::string text(bytes, '?');
    stream.read(&text[0], bytes);
    return text;
}

TEST(InputStream, ReadsExactlyOrNotAtAll) {
    const TempFolder folder;
    const auto stream = open_input_stream(folder.file("f", "0123456789"));
    EXPECT_EQ(stream->size(), 10u);
    EXPECT_EQ(read_text(*stream, 4), "0123");
    const auto state = stream->get_state();
    EXPECT_EQ(read_text(*stream, 5), "45678");
    char untouched[2] = {'a', 'b'};
    EXPECT_EQ(error_of([&] { stream->read(untouched, 2); }), END_OF_FILE);
    EXPECT_EQ(error_of([&] { stream->read(untouched, SIZE_MAX); }), END_OF_FILE);
    EXPECT_EQ(std::string(untouched, 2), "ab");
    EXPECT_EQ(read_text(*stream, 1), "9");
    stream->read(untouched, 0);
    EXPECT_EQ(stream->remaining(), 0u);
    EXPECT_EQ(stream->set_state(*state), 0);
    EXPECT_EQ(stream->remaining(), 6u);
    EXPECT_EQ(read_text(*stream, 6), "456789");
    EXPECT_NE(stream->handle(), nullptr);
}

TEST(InputStream, SizeIsThatOfTheOpening) {
    const TempFolder folder;
    const std::string path = folder.file("f", "");
    const auto empty = open_input_stream(path);
    EXPECT_EQ(empty->size(), 0u);
    folder.file("f", std::string(1 << 16, 'x'));  // more than is read ahead
    EXPECT_EQ(error_of([&] { read_text(*empty, 1); }), END_OF_FILE);
    const auto cut = open_input_stream(path);
    std::filesystem::resize_file(path, 2);
    EXPECT_EQ(error_of([&] { read_text(*cut, 1 << 16); }),
              "Error[6] Cannot read " + path +
                  " at [virtual void {anonymous}::FileInputStream::read(void*, size_t)]");
    EXPECT_EQ(cut->remaining(), size_t{1} << 16);
}

TEST(InputStream, TakesMemoryOnlyForWhatTheFileHolds) {
    const TempFolder folder;
    const std::string words = bytes_of<uint64_t>({7, 8, 9});
    const auto stream = open_input_stream(folder.file("f", words + "0123456"));
    EXPECT_EQ(vek::read_u64(*stream), 7u);
    // A product of count and size that wraps must not pass for a small one.
    for (uint64_t count : {uint64_t{3}, uint64_t{1} << 61, (uint64_t{1} << 61) + 1, UINT64_MAX})
        EXPECT_EQ(error_of([&] { stream->read_array<uint64_t>(count); }), END_OF_FILE) << count;
    const auto array = stream->read_array<uint64_t>(2);
    EXPECT_EQ(array[1], 9u);
    EXPECT_NE(stream->read_array<uint64_t>(0), nullptr);
    EXPECT_EQ(error_of([&] { vek::read_u64(*stream); }), END_OF_FILE);
}

TEST(Streams, RefusalsNameThePath) {
    const TempFolder folder;
    const std::string missing = folder / "no/file";
    EXPECT_EQ(error_of([&] { open_input_stream(missing); }),
              "Error[9] Cannot open " + missing +
                  " at [{anonymous}::FileInputStream::FileInputStream(const string&)]");
    const std::string output =
        " at [{anonymous}::FileOutputStream::FileOutputStream(const string&, bool)]";
    EXPECT_EQ(error_of([&] { open_output_stream(missing, false); }),
              "Error[1] FileOutputStream cannot create " + missing + output);
    EXPECT_EQ(error_of([&] { open_output_stream(missing, true); }),
              "Error[1] FileOutputStream cannot append to " + missing + output);
    // A pipe has no position.
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::string pipe_path = "/proc/self/fd/" + std::to_string(ends[0]);
    EXPECT_EQ(error_of([&] { open_input_stream(pipe_path); }),
              "Error[6] Cannot seek " + pipe_path +
                  " at [{anonymous}::FileInputStream::FileInputStream(const string&)]");
    close(ends[0]);
    close(ends[1]);
}

TEST(OutputStream, TruncatesAppendsAndCloses) {
    const std::string write =
        " at [virtual void {anonymous}::FileOutputStream::write"
        "(const void*, size_t)]";
    const TempFolder folder;
    const std::string path = folder.file("f", "old content");
    auto stream = open_output_stream(path, false);
    EXPECT_EQ(bytes_of_file(path), "");
    stream->write("abc", 3);
    stream->close();
    EXPECT_TRUE(stream->closed());
    EXPECT_EQ(stream->handle(), nullptr);
    EXPECT_EQ(error_of([&] { stream->write("d", 1); }),
              "Error[1] write to closed FileOutputStream" + write);
    stream = open_output_stream(path, true);
    EXPECT_FALSE(stream->closed());
    vek::write_u64(*stream, 0x0102030405060708);
    stream.reset();
    EXPECT_EQ(bytes_of_file(path), "abc\x08\x07\x06\x05\x04\x03\x02\x01");
    const std::string large(1 << 16, 'x');  // more than the stream keeps back
    EXPECT_EQ(error_of([&] { open_output_stream("/dev/full", false)->write(&large[0], 1 << 16); }),
              "Error[1] FileOutputStream cannot write to /dev/full" + write);
}

}  // namespace
