// What the program says, how it gets on with others, and that it calls right whatever was built or compacted.
#include <optional>
#include <tuple>

#include "check/check_run.h"
#include "check/position_set.h"
#include "support/data_sample.h"
#include "support/held_lock.h"
#include "support/program_run.h"

namespace tarnvale {
namespace {

TEST(PositionSet, RemembersWhatItsMemoryHolds) {
  for (const std::uint64_t size : {std::uint64_t{100}, std::uint64_t{64} << 23, (std::uint64_t{64} << 23) + 1}) {
    PositionSet set(size);
    const auto last = static_cast<std::uint32_t>(size - 1);
    EXPECT_FALSE(set.add(last) || set.add(last + 1) || set.add(last - 1));
    EXPECT_EQ(set.add(last), size <= std::uint64_t{64} << 23);
  }
}

TEST(Check, SaysWhatItFoundAndWhetherItCouldLook) {
  const TestFolder folder;
  folder.write("data.TXT", "b\na\nb\n");
  EXPECT_EQ(run(folder, "$T data,idx -1; $T data,tmp,,none -1; mkdir folder.ISI").exitStatus, 0);
  // commands; exit status; among the output, or no output
  const std::tuple<const char*, int, std::string_view> cases[] = {
      {"$C idx", 0, "index is complete: 3 entries, 0 deleted records, 1 node on 1 level\n"},
      {"$C -s idx", 0, "index structure is right: 3 entries, 0 deleted records, 1 node on 1 level\n"},
      {"$C -q idx", 0, ""},
      {"$C idx >/dev/full", 2, ""},
      {"$C nothing", 2, "Can't open .isi file nothing.ISI\n"},
      {"$C folder", 2, "Can't open .isi file folder.ISI: it is no regular file\n"},
      {"$C data.TXT", 1, "data.TXT: its first 2048 bytes are not those of an index\nindex is wrong: 1 difference\n"},
      {"TMPDIR=none $C idx", 2, "The work files cannot be made in none\n"},
      {"TMPDIR=$(printf %0256d 0) $C idx", 2, "The work files cannot be made in 000"},
      {"n=$(printf %0249d 0); cd tmp; echo a >$n.TXT; $T $n,n -1; mv n.ISI ..; cd ..; QLX_PATH=tmp $C n", 2,
       "Full Path+Filename+Extension size limited to 255"},
      {"$C", 2, "Usage: "},
      {"$C a b", 2, "Usage: "},
      {"$C -x idx", 2, "invalid option"},
      {"$C -h", 0, "Usage: "},
      {"$C --help >/dev/full", 2, ""},
      {"$C --version", 0, "tarnvale-check  Version "},
      {"mv data.TXT away; $C -s idx", 0, "index structure is right"},
      {"$C idx", 2, "Can't open source file data.TXT\n"},
      {"$C -q idx", 2, ""},
      {"touch data.TXT; $C idx", 1, "the data file is not in the format that its index declares: it tells no"},
      {"printf abcd >f.TXT; $T f,f -f=2,1; printf abc >f.TXT; $C f", 1, "index declares: it ends inside a record\n"},
      {"echo ab >g.TXT; $T g,g -g=2,1; printf abc >g.TXT; $C g", 1, "LFA 0: the record does not end with the mark\n"},
      {"echo a >v.TXT; $T v,v,L9 -v,1; echo 0123456789 >v.TXT; $C v", 1, "not in the format that its index declares\n"},
      {"echo a >w.TXT; $T w,w -v,1; : >w.TXT; $C w", 1, "the data file is empty: no record length is known\n"},
  };
  for (const auto& [commands, exitStatus, text] : cases) {
    const ProgramResult result = run(folder, commands);
    EXPECT_EQ(result.exitStatus, exitStatus) << commands << "\n" << result.output;
    EXPECT_TRUE(text.empty() ? result.output.empty() : result.says(text)) << commands << "\n" << result.output;
  }
}

TEST(Progress, IsShownAtATerminalAndWipedOut) {
  const TestFolder folder;
  run(folder, "seq 19999 -1 10000 >data.TXT");
  const std::string little = "-m524288 -m262144 -m131072 -m65536 -m32768 -m16384 -m8192 -m4096 ";
  const ProgramResult built = runAtTerminal(folder, little + "data,idx -1-5");
  EXPECT_TRUE(built.says("Sort train 1 (") && built.says("Merge pass 1 (")) << built.output;
  EXPECT_EQ(runProgram(folder, little + "data,idx -1-5").output.find('\r'), std::string::npos);
  const ProgramResult checked = runAtTerminal(folder, "idx", TARNVALE_CHECK_PROGRAM);
  EXPECT_TRUE(checked.says("scan: ") && checked.says("compare: 40%\r")) << checked.output;
  EXPECT_TRUE(checked.says("  \rindex is complete: 10000 entries, 0 deleted records, ")) << checked.output;
  const ProgramResult compacted = runAtTerminal(folder, "idx -c");
  EXPECT_TRUE(compacted.says("10000 records, 0 deleted entries")) << compacted.output;
}

TEST(Check, SharesTheDataFileWithApplicationsAlone) {
  const TestFolder folder;
  const std::string data = folder.write("data.TXT", "b\na\n");
  EXPECT_EQ(run(folder, "$T data,idx -1").exitStatus, 0);
  for (const char* const command : {"$C idx", "$C -s idx"}) {
    {
      const HeldLock application(data, readAccess);
      EXPECT_EQ(run(folder, command).exitStatus, 0);
    }
    const HeldLock compaction(data, writeAccess);
    EXPECT_EQ(run(folder, command).output, "The data file is in exclusive use: data.TXT\n");
  }
}

TEST(Check, NoticesABuildThatCameBetween) {
  const TestFolder folder;
  const std::string data = folder.write("data.TXT", "b\na\n");
  EXPECT_EQ(run(folder, "$T data,idx -1; cp idx.ISI first; $T data,idx -d,1; cp idx.ISI second").exitStatus, 0);
  std::optional<ProgramRun> check;
  {
    const HeldLock changing(data, writeUpdate);
    check.emplace(
        folder, "idx", [] { ::dup2(STDOUT_FILENO, STDERR_FILENO); }, TARNVALE_CHECK_PROGRAM);
    while (folder.names().find("tmp/") == std::string::npos) ::usleep(1000);  // then it knows the command
    folder.write("idx.ISI", folder.read("first"));
  }
  EXPECT_EQ(check->finish().output, "The index was built again meanwhile.\n");
}

TEST(SoundIndex, IsWhatIsBuiltCompactedAndRebuiltInEveryFormat) {
  std::mt19937 random(7);
  const std::string little = "$T -m524288 -m262144 -m131072 -m65536 -m32768 -m16384 -m8192 ";  // for many sort trains
  const char* const options[] = {"n0,", "n$,d,", "u,m50,", "w,o=1,", "p2=A,x,", "p=2='A'&3<'Z',z,", "e,y,b,m33,"};
  for (int turn = 0; turn < 20; ++turn) {  // five formats, four marks
    const bool plain = turn / 5 % 2 == 0;  // then the entries are known
    const bool inPlace = turn % 2 == 0;
    const bool turned = turn % 3 == 0;  // then the steps begin with the other byte order
    const TestFolder folder;
    const DataSample sample = makeSample(turn, std::size_t{1} << (8 + turn / 2), random);
    const std::vector<IndexEntry> entries = expectedEntries(sample.records, sample.recordNumbers);
    folder.write("data.TXT", sample.bytes);
    const std::string build =
        "data,idx," + sample.recordLength + " -" + (plain ? "" : options[turn % 7]) + sample.options;
    const std::string steps[][2] = {{little + "\"" + build + "\"", "idx.ISI"},
                                    {inPlace ? "$T idx -c" : "$T idx,new -c=1", inPlace ? "idx.ISI" : "new.ISI"},
                                    {"$T idx -r", "idx.ISI"}};
    for (const auto& [command, name] : steps) {
      const ProgramResult made = run(folder, command);
      SCOPED_TRACE(build + "; " + command);
      ASSERT_EQ(made.exitStatus, 0) << made.output;
      const std::string bytes = folder.read(name);
      if (turned) rewrite(folder, name, otherByteOrder(bytes));
      expectSound(folder, name, turned ? "in the other byte order" : "as made");
      if (!plain) continue;
      const IndexFile index = readIndex(bytes);
      EXPECT_EQ(index.faults, "");
      EXPECT_TRUE(index.entries == entries);
      EXPECT_EQ(index.deleted.size(), sample.deletedLfas.size());
    }
  }
}

TEST(SoundIndex, IsOneOfAnOddDataFileOrCommand) {
  const std::string deleted(300 * 4, '\0');
  const std::string cases[][3] = {
      {"empty", "", "data,idx,L9 -1"},
      {"empty, variable", "", "data,idx,L9 -v,1"},
      {"without key", "a\nb\nc\n", "data,idx -p1#b"},
      {"keys downwards, one of no length", "abcd\nbcda\n", "data,idx -4-3,2-1"},
      {"only record without its mark", "abc", "data,idx,L3 -3"},
      {"Ctrl-Z before the end", "abc\nabd\n\x1Amore\n", "data,idx,L3 -1-2"},
      {"only marks", "\n\n\n", "data,idx -1-4"},
      {"mark, and binary without", "abcabd", "data,idx -f=3,g=3,1-3"},
      {"deleted records alone", deleted, "data,idx,L3 -1-2"},
      {"deleted records not kept", "abc\n" + deleted + "bcd\n", "data,idx -w,1-2"},
      {"equal keys ignored", "abc\nabd\n", "data,idx -n0,1"},
      {"nearly empty nodes", "abc\nbcd\ncde\ndef\nabc\n", "data,idx -m04,1-3"},
      {"blanks and capitals", "abc\nbcd\n", "data,idx;U M90 1-2 X"},
      {"key on the last column", "abc\nbcd\n", "data,idx -65534,1"},
  };
  for (const auto& [what, data, build] : cases) {
    const TestFolder folder;
    folder.write("data.TXT", data);
    for (const std::string& command : {build, std::string("idx -c=1")}) {
      SCOPED_TRACE(what + "; " + command);
      const bool refused = what == "without key" && command != build;
      ASSERT_EQ(run(folder, "$T \"" + command + "\"").exitStatus, refused ? 1 : 0);
      expectSound(folder, "idx.ISI", "as made");
      rewrite(folder, "idx.ISI", otherByteOrder(folder.read("idx.ISI")));
      expectSound(folder, "idx.ISI", "in the other byte order");
    }
  }
}

// The data file is named in every way; `place` is where it lies.
TEST(SoundIndex, MayHaveItsDataNamedInAnyWay) {
  const std::string cases[][2] = {
      {"data.TXT", "$T data,idx -1; mkdir away; cd away; $C ../idx && cd .."},
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
  for (const auto& [place, build] : cases) {
    const TestFolder folder;
    const ProgramResult result =
        run(folder, "mkdir sub; printf 'b\\na\\n' >" + place + "; " + build + "; $C idx && $C -s idx");
    EXPECT_EQ(result.exitStatus, 0) << build << result.output;
    const bool noted = result.says("note: the command stored in the index is for \"other\"\n");
    EXPECT_EQ(noted, build.find("other") != std::string::npos) << build << result.output;
  }
}

}  // namespace
}  // namespace tarnvale
