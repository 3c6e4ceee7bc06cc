// The roof's index: a node per level is filled from below and written once, as in every index of tarnvale.
#pragma once

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "files.h"
#include "roof_train.h"

namespace bench {

template <std::size_t keyLength>
struct Tree {
  using Record = Entry<keyLength>;

  struct NodeEntry {
    std::uint32_t position;
    std::uint32_t child;
    std::uint16_t duplicate;
    std::uint16_t length;
    std::uint8_t key[keyLength];
  };
  struct Node {
    std::uint8_t entries[500];
    std::uint8_t count;
    std::uint8_t unused[5];
    std::uint16_t level;
    std::uint32_t right;
  };
  static_assert(sizeof(NodeEntry) == (keyLength + 15) / 4 * 4 && sizeof(Node) == 512);
  static constexpr std::size_t fullNode = sizeof(Node::entries) / sizeof(NodeEntry);

  Writer out;
  bool byNumber;
  bool dropsKeys = false;  // of equal keys only the first is kept, and the others are listed
  Writer dropped;
  Writer messages{STDOUT_FILENO};

  Tree(int fd, bool positionsAreNumbers) : out{fd}, byNumber(positionsAreNumbers) {
    for (std::size_t i = 0; i < levels.size(); ++i) levels[i].level = static_cast<std::uint16_t>(i);
    const std::array<std::uint8_t, 2048> empty{};
    out.put(empty.data(), empty.size());
  }

  void add(const Record& entry) {
    const bool equal = before != nullptr && std::memcmp(before, entry.key, keyLength) == 0;
    if (equal && dropsKeys) {
      reportDropped(entry);
      return;
    }
    duplicate = equal ? static_cast<std::uint16_t>(duplicate + 1) : std::uint16_t{0};
    std::size_t level = 0;
    std::uint32_t child = 0;
    for (; levels[level].count == fullNode; ++level) {
      levels[level].right = child;
      child = writeNode(levels[level]);
    }
    if (level > top) top = level;
    Node& node = levels[level];
    auto& added = reinterpret_cast<NodeEntry*>(node.entries)[node.count++];
    added.position = static_cast<std::uint32_t>(byNumber ? entry.lfa / entry.length : entry.lfa);
    added.child = child;
    added.duplicate = duplicate;
    added.length = entry.length;
    std::memcpy(added.key, entry.key, keyLength);
    before = added.key;
  }

  void finish() {
    std::uint32_t child = 0;
    for (std::size_t level = 0; level < top; ++level) {
      levels[level].right = child;
      if (levels[level].count != 0) child = writeNode(levels[level]);
    }
    out.flush();
    if (dropsKeys) {
      dropped.flush();
      messages.flush();
    }
    levels[top].right = child;
    if (::pwrite(out.fd, &levels[top], sizeof(Node), 1024) != sizeof(Node)) fail("cannot write the root");
  }

 private:
  std::array<Node, 16> levels{};
  std::size_t top = 0;
  std::uint32_t nodesWritten = 0;
  const std::uint8_t* before = nullptr;  // the key of the last entry, which stays until another takes its place
  std::uint16_t duplicate = 0;

  // A line of the error file, and the same as a message.
  void reportDropped(const Record& entry) {
    static constexpr char text[] = "Duplicate Key ignored at:                 Key:";
    constexpr std::size_t hexEnd = 41;
    char line[sizeof text + keyLength + 2];
    std::memcpy(line, text, sizeof text - 1);
    std::uint64_t rest = entry.lfa;
    for (std::size_t place = hexEnd; place == hexEnd || rest != 0; rest /= 16)
      line[--place] = "0123456789ABCDEF"[rest % 16];
    std::memcpy(line + sizeof text - 1, entry.key, keyLength);
    std::memcpy(line + sizeof text - 1 + keyLength, " \r\n", 3);
    dropped.put(line, sizeof line);
    messages.put(line, sizeof line);
  }

  std::uint32_t writeNode(Node& node) {
    out.put(&node, sizeof node);
    node.count = 0;
    const std::uint32_t number = 4 + nodesWritten++;
    return byNumber ? number : number * static_cast<std::uint32_t>(sizeof(Node));
  }
};

}  // namespace bench
