// What the doctor found: one line for each link of the chain from the library's file to the sound.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vellumic::tools {

enum class Verdict { ok, notOk, unknown };

struct Finding {
  std::string link;  // a short name, the same in every report
  Verdict verdict;
  std::string text;  // of notOk it ends with what to do
};

class Findings {
 public:
  void ok(std::string link, std::string text) { add(std::move(link), Verdict::ok, text); }
  void notOk(std::string link, std::string fault, const std::string& remedy) {
    add(std::move(link), Verdict::notOk, fault + "; " + remedy);
  }
  void unknown(std::string link, std::string text) { add(std::move(link), Verdict::unknown, text); }

  [[nodiscard]] const Finding* find(const std::string& link) const;
  [[nodiscard]] std::size_t count(Verdict verdict) const;
  [[nodiscard]] const std::vector<Finding>& all() const { return all_; }
  [[nodiscard]] std::size_t size() const { return all_.size(); }
  [[nodiscard]] std::string table() const;
  [[nodiscard]] std::string json() const;  // a list

 private:
  void add(std::string link, Verdict verdict, std::string text) {
    all_.push_back({std::move(link), verdict, std::move(text)});
  }
  std::vector<Finding> all_;
};

}  // namespace vellumic::tools
