// The `p` option: which records are primary, that is, get an index entry.
//
//   p11=A                       the byte at column 11 equals A (p11#A: differs from it)
//   p=1='AB'&5>'X'|20='Z'       an expression of comparisons; & binds more tightly than | (p#...: it is false)
#pragma once

#include "cmdline/columns.h"
#include "cmdline/option_text.h"

namespace tarnvale {

/// Reads one option, from the character behind the letter p on, into the column table and the selection. False when it
/// is wrong, or when ten options were given before; the position then is somewhere inside the option.
[[nodiscard]] bool parsePrimaryOption(KeyColumns& keys, Selection& selection, OptionText& text);

}  // namespace tarnvale
