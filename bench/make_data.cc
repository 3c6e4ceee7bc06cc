// Makes the data of the jobs: the same bytes for the same shape and number of records, on every machine.
//
//   make_data SHAPE RECORDS FILE
//
// A record begins with its key, as a rule 10 characters. What follows is text that differs from record to record, so
// that nothing is gained by a record looking like its neighbours.
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "files.h"

namespace {

// Numbers that look random (splitmix64): a counter whose bits are mixed.
struct Random {
  std::uint64_t state = 20240607;

  std::uint64_t next() {
    std::uint64_t z = state += 0x9E3779B97F4A7C15;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
  }
  std::uint64_t below(std::uint64_t limit) { return (next() >> 32) * limit >> 32; }  // limit: at most 2^32
};

struct Maker {
  std::uint64_t records = 0;  // in all
  std::uint64_t number = 0;   // of the record being made, from 0
  Random random;
  std::string record;
  std::string text;  // fillers are pieces of it

  void putBytes(std::size_t size) {
    for (; size > 0; size -= std::min<std::size_t>(size, 8)) {
      const std::uint64_t bytes = random.next();
      record.append(reinterpret_cast<const char*>(&bytes), std::min<std::size_t>(size, 8));
    }
  }
  // Characters '!' to '~'.
  void putRandom(std::size_t size) {
    const std::size_t start = record.size();
    putBytes(size);
    for (std::size_t i = start; i < record.size(); ++i)
      record[i] = static_cast<char>('!' + (static_cast<unsigned char>(record[i]) * 94 >> 8));
  }
  void putNumber(std::uint64_t value, std::size_t digits) {
    record.append(digits, '0');
    for (auto digit = record.end(); value != 0 && digits-- > 0; value /= 10)
      *--digit = static_cast<char>('0' + value % 10);
  }
  void putText(std::size_t size) { record.append(text, random.below(text.size() - size), size); }
  // Text up to a record of `size` bytes, the mark included.
  void finish(std::size_t size, std::string_view mark) {
    putText(size - record.size() - mark.size());
    record += mark;
  }
};

// Column 11 is one of ten letters and column 12 one of ten digits, for the jobs with conditions.
void putFields(Maker& maker) {
  maker.putRandom(10);
  maker.record += static_cast<char>('A' + maker.random.below(10));
  maker.record += static_cast<char>('0' + maker.random.below(10));
  maker.putNumber(maker.number, 10);
}

void makeRandom(Maker& maker) {
  putFields(maker);
  maker.finish(100, "\n");
}

void makeCrLf(Maker& maker) {
  putFields(maker);
  maker.finish(100, "\r\n");
}

void makePrefix(Maker& maker) {
  maker.record += "CUSTOMER-";
  maker.putNumber(maker.random.below(maker.records), 10);
  maker.finish(100, "\n");
}

void makeTen(Maker& maker) {
  maker.record += "BRANCH-";
  maker.putNumber(maker.random.below(10), 3);
  maker.finish(100, "\n");
}

void makeSorted(Maker& maker) {
  maker.putNumber(maker.number, 10);
  maker.finish(100, "\n");
}

void makeReversed(Maker& maker) {
  maker.putNumber(maker.records - 1 - maker.number, 10);
  maker.finish(100, "\n");
}

// In order but for one record in a hundred, which could stand anywhere.
void makeNearly(Maker& maker) {
  const bool astray = maker.random.below(100) == 0;
  maker.putNumber(astray ? maker.random.below(maker.records) : maker.number, 10);
  maker.finish(100, "\n");
}

void makeLongKey(Maker& maker) {
  maker.putRandom(150);
  maker.finish(200, "\n");
}

void makeShort(Maker& maker) {
  maker.putRandom(10);
  maker.putNumber(maker.number, 5);
  maker.record += '\n';
}

void makeLong(Maker& maker) {
  maker.putRandom(10);
  maker.finish(4000, "\n");
}

// 20 to 500 bytes and the mark.
void makeVariable(Maker& maker) {
  maker.putRandom(10);
  maker.finish(21 + maker.random.below(481), "\n");
}

// A key of columns 1 to 4 and 17 to 22. In nine records of ten, TABs lead from field to field; else blanks.
void makeTabs(Maker& maker) {
  const bool tabs = maker.random.below(10) != 0;
  const auto goTo = [&](std::size_t column) { tabs ? maker.record += '\t' : maker.record.append(column, ' '); };
  maker.putRandom(4);
  goTo(4);
  const std::size_t name = 3 + maker.random.below(5);
  maker.putText(name);
  goTo(8 - name);
  maker.putRandom(6);
  goTo(2);
  maker.putText(20 + maker.random.below(40));
  maker.record += '\n';
}

void makeBinary(Maker& maker) { maker.putBytes(100); }

// The byte before the mark is no CR, with which the mark would be another one.
void makeFramed(Maker& maker) {
  maker.putBytes(98);
  maker.record += "|\n";
}

struct Shape {
  std::string_view name;
  void (*make)(Maker&);
};
constexpr auto shapes = std::to_array<Shape>({
    {"random", makeRandom},
    {"crlf", makeCrLf},
    {"prefix", makePrefix},
    {"ten", makeTen},
    {"sorted", makeSorted},
    {"reversed", makeReversed},
    {"nearly", makeNearly},
    {"longkey", makeLongKey},
    {"short", makeShort},
    {"long", makeLong},
    {"variable", makeVariable},
    {"tabs", makeTabs},
    {"binary", makeBinary},
    {"framed", makeFramed},
});

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount != 4) bench::fail("usage: make_data SHAPE RECORDS FILE");
  const auto shape = std::ranges::find(shapes, std::string_view(arguments[1]), &Shape::name);
  if (shape == shapes.end()) bench::fail(std::string("no such shape: ") + arguments[1]);
  Maker maker;
  maker.putRandom(16384);
  maker.text = std::move(maker.record);
  maker.records = std::strtoull(arguments[2], nullptr, 10);
  bench::Writer out{bench::openFile(arguments[3], O_CREAT | O_TRUNC)};
  for (; maker.number < maker.records; ++maker.number) {
    maker.record.clear();
    shape->make(maker);
    out.put(maker.record.data(), maker.record.size());
  }
  out.flush();
}
