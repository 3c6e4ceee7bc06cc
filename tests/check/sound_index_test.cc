// What a build or a compaction writes is right, whatever the options, the format and the place.
#include "check/check_run.h"
#include "support/data_sample.h"

namespace tarnvale {
namespace {

TEST(SoundIndex, IsWhatIsBuiltCompactedAndRebuiltInEveryFormat) {
  std::mt19937 random(7);
  const std::string little = "$T -m524288 -m262144 -m131072 -m65536 -m32768 -m16384 -m8192 ";  // for many sort trains
  const char* const options[] = {"n0,", "n$,d,", "u,m50,", "w,o=1,", "p2=A,x,", "p=2='A'&3<'Z',z,", "e,y,b,m33,"};
  for (int turn = 0; turn < 40; ++turn) {  // five formats, four marks
    const bool plain = turn % 2 == 0;      // then the entries are known
    const TestFolder folder;
    const DataSample sample = makeSample(turn / 2, std::size_t{1} << (8 + turn % 20 / 2), random);
    const std::vector<IndexEntry> entries = expectedEntries(sample.records, sample.recordNumbers);
    folder.write("data.TXT", sample.bytes);
    const std::string build =
        "data,idx," + sample.recordLength + " -" + (plain ? "" : options[turn / 2 % 7]) + sample.options;
    const std::string steps[][2] = {{little + "\"" + build + "\"", "idx.ISI"},
                                    {"$T idx,new -c=1", "new.ISI"},
                                    {"$T idx -c", "idx.ISI"},
                                    {"$T idx -r", "idx.ISI"}};
    for (const auto& [command, name] : steps) {
      const CheckOutcome made = run(folder, command);
      ASSERT_EQ(made.exitStatus, 0) << build << "; " << command << made.output;
      const std::string bytes = folder.read(name);
      for (const std::string& twin : {otherByteOrder(bytes), bytes}) {
        folder.write(name, twin);
        expectSound(folder, name, build + "; " + command);
      }
      if (!plain) continue;
      const IndexFile index = readIndex(bytes);
      EXPECT_EQ(index.faults, "") << build << "; " << command;
      EXPECT_TRUE(index.entries == entries) << build << "; " << command;
      EXPECT_EQ(index.deleted.size(), sample.deletedLfas.size()) << build << "; " << command;
    }
    folder.write("idx.ISI", otherByteOrder(folder.read("idx.ISI")));
    EXPECT_EQ(run(folder, "$T idx -c").exitStatus, 0) << build;
    expectSound(folder, "idx.ISI", build + " big-endian, compacted");
  }
}

TEST(SoundIndex, IsOneOfAnOddDataFileOrCommand) {
  const std::string deleted(300 * 4, '\0');
  const struct {
    const char* what;
    std::string data;
    const char* command;
  } cases[] = {
      {"empty", "", "data,idx,L9 -1"},
      {"empty, variable", "", "data,idx,L9 -v,1"},
      {"without key", "a\nb\nc\n", "data,idx -p1#b"},
      {"keys downwards, one of no length", "abcd\nbcda\n", "data,idx -4-3,2-1"},
      {"last record without its mark", "abc\nabd\nabe", "data,idx -1-3"},
      {"only record without its mark", "abc", "data,idx,L3 -3"},
      {"Ctrl-Z before the end", "abc\nabd\n\x1Amore\n", "data,idx,L3 -1-2"},
      {"only marks", "\n\n\n", "data,idx -1-4"},
      {"mark, and binary without", "abcabd", "data,idx -f=3,g=3,1-3"},
      {"binary with mark", "\n\n\n\x1A\t\n", "data,idx -g=2,1-2"},
      {"space compression", "a\tb\nc\t\td\n\t\n", "data,idx -s,1-20"},
      {"deleted records alone", deleted, "data,idx,L3 -1-2"},
      {"deleted records of an expression", "abc\n" + deleted + "bcd\n", "data,idx -p=1='a',1-2"},
      {"deleted records not kept", "abc\n" + deleted + "bcd\n", "data,idx -w,1-2"},
      {"nearly empty nodes", "abc\nbcd\ncde\ndef\nabc\n", "data,idx -m04,1-3"},
      {"blanks and capitals", "abc\nbcd\n", "data;U M90 1-2 X"},
      {"key on the last column", "abc\nbcd\n", "data,idx -65534,1"},
  };
  for (const auto& c : cases) {
    const TestFolder folder;
    folder.write("data.TXT", c.data);
    const CheckOutcome built =
        run(folder, std::string("$T \"") + c.command + "\"; test -f idx.ISI || mv data.ISI idx.ISI");
    ASSERT_EQ(built.exitStatus, 0) << c.what << built.output;
    for (const char* const step : {"built", "compacted"}) {
      EXPECT_EQ(run(folder, "$C idx").exitStatus, 0) << c.what << ", " << step << run(folder, "$C idx").output;
      EXPECT_EQ(run(folder, "$C -s idx").exitStatus, 0) << c.what << ", " << step << run(folder, "$C -s idx").output;
      folder.write("idx.ISI", otherByteOrder(folder.read("idx.ISI")));
      EXPECT_EQ(run(folder, "$C idx; $C -s idx").exitStatus, 0) << c.what << ", big-endian, " << step;
      folder.write("idx.ISI", otherByteOrder(folder.read("idx.ISI")));
      run(folder, "$T idx -c");
    }
  }
}

// The data file is named in every way; `place` is where it lies.
TEST(SoundIndex, MayHaveItsDataNamedInAnyWay) {
  const struct {
    const char* place;
    const char* build;
  } cases[] = {
      {"data.TXT", "$T data,idx -1"},
      {"data.txt", "$T data/txt,idx -1"},
      {"data", "$T data.,idx -1"},
      {"DATA.D1", "$T DATA.D1,idx -1"},
      {"sub/data.TXT", "$T sub/data,idx -1; mv sub/idx.ISI ."},
      {"sub/data.TXT", "$T sub/data,idx -z,1; cd sub"},
      {"sub/data.TXT", "QLX_NOPATH=on $T sub/data,idx -1; cd sub"},
      {"sub/data.TXT", "export QLX_PATH=sub; $T data,idx -1; test -f idx.ISI || mv sub/idx.ISI ."},
      {"sub/data.txt", "export QLXVOL_BIG=sub; $T data/txt:big,idx -1; mv sub/idx.ISI ."},
      {"sub/data.txt", "QLXVOL_BIG=sub $T data.txt:big,idx -1; mv sub/idx.ISI ."},
      {"data.txt", "QLX_FNC=1 $T DATA,idx -1; mv idx.isi idx.ISI"},
      {"data.TXT", "$T data,other -1; mv other.ISI idx.ISI; $C idx"},
      {"data.TXT", "$T data,,-1; cp data.ISI idx.ISI; $C data"},
  };
  for (const auto& c : cases) {
    const TestFolder folder;
    run(folder, std::string("mkdir sub; printf 'b\\na\\n' >") + c.place);
    const CheckOutcome outcome = run(folder, c.build + std::string("; $C idx && $C -s idx"));
    EXPECT_EQ(outcome.exitStatus, 0) << c.build << outcome.output;
    const bool noted = outcome.says("note: the command stored in the index is for \"other\"\n");
    EXPECT_EQ(noted, std::string_view(c.build).find("other") != std::string_view::npos) << outcome.output;
  }
}

TEST(SoundIndex, HasRelativeDataBesideIt) {
  const TestFolder folder;
  folder.write("data.TXT", "b\na\n");
  EXPECT_EQ(run(folder, "mkdir elsewhere; $T data,idx -1").exitStatus, 0);
  EXPECT_EQ(run(folder, "cd elsewhere; $C ../idx.ISI").exitStatus, 0);
}

}  // namespace
}  // namespace tarnvale
