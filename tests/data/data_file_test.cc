#include "data/data_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/test_parts.h"

namespace tarnvale {
namespace {

using namespace std::string_literals;

TEST(EndOfRecord, IsThatOfTheLastRecordWhereverChunksEnd) {
  using enum EorConvention;
  const struct {
    std::string content;
    EorConvention convention;
    std::uint32_t recordLength;  // with the mark, 0 when none is found
    std::string mark;
  } cases[] = {
      {"abc\nabcde\n", lf, 6, "\n"},      {"abc\rabc\r", cr, 4, "\r"},         {"abc\nab\r\n", crLf, 4, "\r\n"},
      {"ab\n\0\0\0abcd\n"s, lf, 5, "\n"}, {"ab\n\rabcd\n\r", lfCr, 6, "\n\r"}, {"abc\r\n\0\0\0"s, crLf, 5, "\r\n"},
      {"abc\nxy", lf, 4, "\n"},           {"abc\n\x1A", lf, 4, "\n"},          {"\n\n", lf, 1, "\n"},
      {"", systemDefault, 0, "\n"},       {"abcdef", systemDefault, 0, "\n"},  {"\r", systemDefault, 0, "\r"}};
  const TestFolder folder;
  for (const auto& c : cases) {
    for (const std::size_t bufferSize : {2U, 3U, 4U, 7U, 64U}) {
      TestFiles files;
      TrackedFile& file = files[FileRole::input];
      ASSERT_TRUE(file.name.assign(folder.write("data", c.content)) && openRegular(file, O_RDONLY));
      std::vector<std::uint8_t> buffer(bufferSize);
      EndOfRecordMark mark;
      std::uint32_t length = 0;
      EXPECT_EQ(detectEndOfRecord(file.fd, buffer, mark, &length), c.convention) << c.content;
      EXPECT_EQ(length, c.recordLength) << c.content;
      const char bytes[] = {static_cast<char>(mark.first), static_cast<char>(mark.second)};
      EXPECT_EQ(std::string(bytes, mark.length), c.mark);
      if (c.convention == systemDefault) continue;
      // Where the length is not wanted, only the last chunk counts.
      const bool seen = c.content.find_last_of("\r\n") + bufferSize > c.content.size();
      EXPECT_EQ(detectEndOfRecord(file.fd, buffer, mark, nullptr), seen ? c.convention : systemDefault) << c.content;
    }
  }
}

TEST(DataFile, MustLieBelowFourGigabytesWhereByteOffsetsAddressIt) {
  constexpr off_t limit = off_t{1} << 32;
  const std::tuple<off_t, const char*, StatusCode> cases[] = {{limit - 1, "v,1", 0},
                                                              {limit, "v,1", -138},
                                                              {limit + 1, "s,1", -138},
                                                              {limit, "f=64,1", 0},
                                                              {limit, "g=64,1", 0}};
  for (const auto& [size, options, status] : cases) {
    TestScan scan;
    ASSERT_EQ(::truncate(scan.folder.write("data.txt", "").c_str(), size), 0);  // nothing but its ends is read
    EXPECT_EQ(scan.openExisting(options), status) << size << options;
  }
}

}  // namespace
}  // namespace tarnvale
