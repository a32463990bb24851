// The score table: one row per scene, microphone count and chain.
#pragma once

#include <string>
#include <vector>

#include "parameters/Catalogue.h"
#include "tools/quality/Figures.h"
#include "tools/quality/Scene.h"

namespace vellumic::quality {

extern const char* const scoreHead;  // two lines of Markdown

// "mean (worst)" where several scores were summed up and differ.
std::string scoreRow(const std::string& scene, int microphones, const std::string& chain,
                     const Summary& summary);

struct NamedSettings {
  std::string label;
  RawValues values;
};

struct TableJob {
  std::vector<std::string> scenes;
  std::vector<int> microphones;
  std::vector<std::uint64_t> seeds;
  std::vector<NamedSettings> chains;
  bool yardstick = false;  // SpeexDSP as well
  Signal nearTalk, farTalk;
};

// Every scene with every count, summed up over its seeds and shifts; prints rows as they come.
void printTable(const TableJob& job);

}  // namespace vellumic::quality
