#include "driver/usage.h"

namespace tarnvale {

namespace {

constexpr const char* usagePieces[] = {
    "\ntarnvale [-l{log}] {data}[,{isi}[,{Lnnn}[,{tmppath}]]] -[{opts}]{keyspecs}",
    "\ntarnvale isi -[i|r]",
    "\n  data - Data file spec              ",
    "    isi  - Index file spec",
    "\n  Lnnn - Record size for NULL file/Max record size for variable length records",
    "\n         (65533 Max)",
    "\n  tmppath - Location of temporary work files",
    "\nopts:\n",
    "  b = Treat space comp as binary char  ",
    "  c[={n}] = Compact ISI file\n",
    "  d = Allow duplicate keys             ",
    "  e = Error file of duplicate keys\n",
    "  f={nn} = Binary data & no EOR        ",
    "  g={nn} = Binary data with EOR\n",
    "  i = Display file index info          ",
    "  m{nn} = Max sector fill percent\n",
    "  n = Don't allow duplicate keys       ",
    "  n0= Duplicate keys ignored for NODUP\n",
    "  n$= Quietly ignore duplicate keys    ",
    "  o[={n}] = Set ISI OS type\n",
    "  p{nnn}{=|#}{c} = Primary record      ",
    "  q = Quit if unable to OPEN data file\n",
    "  r = Reindex file using index info    ",
    "  s = Allow space compression\n",
    "  u = Convert lower case to upper case ",
    "  v = Allow variable length records\n",
    "  w = Write all records at End Of File ",
    "  x = Disable record count\n",
    "  y = Don't put Drive in ISI header    ",
    "  z = Discard Path in ISI header\n",
    "  keyspecs: 1-10,21-30,15-20,...etc;  Up to 150 bytes can be used",
    "\nExamples: tarnvale test,test,l100 -un,p11=A,1-10,20,30-40\n",
    "          tarnvale test.dat,test.is2 -11-20,1-5,7-8,21-30\n",
};

}  // namespace

void showUsage(Messages& messages) {
  for (const char* const piece : usagePieces) putMessage(messages, piece);
}

}  // namespace tarnvale
