#include "tools/tune/Journal.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace vellumic::tune {
namespace {

constexpr std::string_view headStart = "vellumic-tune journal ";
constexpr const char* noJournal = ": is no journal and is kept; name another --journal";
constexpr const char* otherRun =
    ": is the journal of another plan, other material or another build; give --fresh to begin anew";

std::string exact(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

// "p1 p2 | value shortfall f1 f2 ;", a quick one with "~ " before.
std::string lineOf(const Journal::Entry& entry) {
  std::string line = entry.depth == Depth::quick ? "~ " : "";
  for (const double value : entry.point) line += exact(value) + " ";
  line += "| " + exact(entry.judgement.value) + " " + exact(entry.judgement.shortfall);
  for (const double figure : entry.judgement.figures) line += " " + exact(figure);
  return line + " ;\n";
}

// Streams do not read "nan".
double numberFrom(const std::string& word) {
  std::size_t used = 0;
  const double value = std::stod(word, &used);
  if (used != word.size()) throw std::invalid_argument(word);
  return value;
}

Journal::Entry entryFrom(const std::string& line) {
  Journal::Entry entry;
  std::istringstream words(line);
  std::vector<double> after;
  bool pastBar = false;
  for (std::string word; words >> word && word != ";";) {
    if (word == "~" && entry.point.empty())
      entry.depth = Depth::quick;
    else if (word == "|")
      pastBar = true;
    else
      (pastBar ? after : entry.point).push_back(numberFrom(word));
  }
  entry.judgement.value = after.at(0);
  entry.judgement.shortfall = after.at(1);
  entry.judgement.figures.assign(after.begin() + 2, after.end());
  return entry;
}

}  // namespace

void Journal::remove(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string line;
  if (std::getline(file, line) && !line.starts_with(headStart))
    throw std::runtime_error(path + noJournal);
  file.close();
  std::filesystem::remove(path);
}

Journal::Journal(std::string path, std::uint64_t print, const Plan& plan)
    : path_(std::move(path)), settings_(plan.space.size()), figures_(plan.goal.size()) {
  std::ostringstream head;
  head << headStart << "2 " << std::hex << print;
  head_ = head.str();
  if (path_.empty()) return;
  read();
  file_.open(path_, std::ios::app);
  if (!file_) throw std::runtime_error(path_ + ": cannot be written; name another --journal");
  if (std::filesystem::file_size(path_) == 0) file_ << head_ << '\n' << std::flush;
}

// What the tool itself writes does.
bool Journal::fits(const Entry& entry) const {
  constexpr double most = std::numeric_limits<float>::max();
  return entry.point.size() == settings_ && entry.judgement.figures.size() == figures_ &&
         std::ranges::all_of(entry.point, [](double value) { return std::abs(value) <= most; });
}

void Journal::read() {
  std::ifstream file(path_, std::ios::binary);
  if (!file) return;
  std::uintmax_t whole = 0;  // bytes of complete lines
  bool first = true;
  for (std::string line; std::getline(file, line);) {
    const bool cutShort = file.eof();  // by a kill
    if (first && line != head_ && !(cutShort && head_.starts_with(line)))
      throw std::runtime_error(path_ + (line.starts_with(headStart) ? otherRun : noJournal));
    if (cutShort) break;
    if (!first) {
      try {
        if (!line.ends_with(" ;")) throw std::invalid_argument(line);
        Entry entry = entryFrom(line);
        if (!fits(entry)) throw std::invalid_argument(line);
        index_.emplace(std::pair(entry.point, entry.depth), entries_.size());
        entries_.push_back(std::move(entry));
      } catch (const std::exception&) {
        throw std::runtime_error(path_ + ": line " + std::to_string(entries_.size() + 2) +
                                 " is damaged; give --fresh to begin anew");
      }
    }
    first = false;
    whole += line.size() + 1;
  }
  file.close();
  std::filesystem::resize_file(path_, whole);
}

const Judgement* Journal::find(const Point& point, Depth depth) const {
  const auto found = index_.find({point, depth});
  return found == index_.end() ? nullptr : &entries_[found->second].judgement;
}

void Journal::add(const Point& point, Depth depth, const Judgement& judgement) {
  index_.emplace(std::pair(point, depth), entries_.size());
  entries_.push_back({point, judgement, depth});
  if (path_.empty()) return;
  file_ << lineOf(entries_.back()) << std::flush;
  if (!file_) throw std::runtime_error(path_ + ": cannot be written; is the disk full?");
}

std::uint64_t fingerprint(std::string_view bytes, std::uint64_t before) {
  for (const char byte : bytes) {
    before ^= static_cast<unsigned char>(byte);
    before *= 0x100000001B3ULL;
  }
  return before;
}

}  // namespace vellumic::tune
