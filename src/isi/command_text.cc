#include "isi/command_text.h"

#include <algorithm>
#include <optional>

#include "common/fixed_text.h"
#include "format/isi_format.h"

namespace tarnvale {

namespace {

// data,isi,rest taken apart; the pieces keep no comma.
struct CommandParts {
  std::string_view data;
  std::string_view index;
  std::string_view rest;
};

std::optional<CommandParts> splitCommand(std::string_view command) {
  const std::size_t first = command.find(',');
  if (first == std::string_view::npos) return std::nullopt;
  const std::size_t second = command.find(',', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  return CommandParts{command.substr(0, first), command.substr(first + 1, second - first - 1),
                      command.substr(second + 1)};
}

}  // namespace

StatusCode replaceIndexName(std::span<char> stored, std::string_view ownCommand) {
  const auto own = splitCommand(ownCommand);
  if (!own) return status::ownCommandMalformed;
  const std::string_view field(stored.data(), stored.size() - 1);
  const auto old = splitCommand(field.substr(0, field.find('\0')));
  if (!old) return status::storedCommandMalformed;
  FixedText<maxStoredCommandLine + 1> command;
  if (!command.join(old->data, ",", own->index, ",", old->rest)) return status::newCommandTooLong;
  std::ranges::fill(stored, '\0');
  command.view().copy(stored.data(), command.size());
  return status::success;
}

}  // namespace tarnvale
