// Every evaluation of a run, kept in a text file so that a killed run goes on where it was.
//
// One line per evaluation, flushed as it is written; a line that a kill cut short is dropped. The
// first line names what was judged: a journal of another plan, other material or another build
// of the signal chain is refused.
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/tune/Goal.h"

namespace vellumic::tune {

class Journal {
 public:
  struct Entry {
    Point point;
    Judgement judgement;
    Depth depth = Depth::full;
  };

  // Reads what is there and appends from then on; "" keeps no file. Every entry has the plan's
  // counts of settings and figures. Throws std::runtime_error with one line.
  Journal(std::string path, std::uint64_t fingerprint, const Plan& plan);

  // Deletes the file if it is a journal, of whatever plan; throws if it is something else.
  static void remove(const std::string& path);

  const Judgement* find(const Point& point, Depth depth) const;
  void add(const Point& point, Depth depth, const Judgement& judgement);
  const std::vector<Entry>& entries() const { return entries_; }  // in the order of evaluation

 private:
  void read();
  bool fits(const Entry& entry) const;

  std::string path_, head_;
  std::size_t settings_, figures_;  // per entry
  std::ofstream file_;
  std::vector<Entry> entries_;
  std::map<std::pair<Point, Depth>, std::size_t> index_;
};

// FNV-1a, to be fed piece by piece.
std::uint64_t fingerprint(std::string_view bytes, std::uint64_t before = 0xCBF29CE484222325ULL);

}  // namespace vellumic::tune
