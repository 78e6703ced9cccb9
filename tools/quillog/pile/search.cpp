#include "quillog/pile/search.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "logfile/file_names.h"

namespace {

constexpr uint64_t kMostNames = 1000000;
constexpr size_t kMostDepth = 64;

/// What was in a packing directory's place: "no output reads them", the daemon least of all.
bool IsMovedAway(const std::string& name) {
  return name.find(std::string(FileNames::kPackingEnd) + ".moved.") != std::string::npos;
}

}  // namespace

bool Search::Find(std::shared_ptr<const Folder> folder, const std::string& path, std::vector<Output>* outputs) {
  std::vector<Place> level = {{std::make_shared<OutputFolder>(std::move(folder), path), {}, {}}};
  if (!level.front().folder->Refresh()) {
    return false;
  }
  for (size_t depth = 0; !level.empty() && !isFull; ++depth) {
    texts.emplace_back();
    std::vector<Place> below;
    for (const Place& place : level) {
      if (depth > 0 && !isFull && !place.folder->Refresh()) {
        const int error = errno;
        damages.push_back({place.folder->prefix(), std::string("cannot be listed: ") + strerror(error)});
      }
      Visit(place, below);
    }
    level = std::move(below);
    if (depth == kMostDepth && !level.empty()) {
      damages.push_back({level.front().folder->prefix(), "deeper than 64 directories: not searched"});
      break;
    }
  }
  Guess();
  std::sort(found.begin(), found.end(), [](const Output& a, const Output& b) { return a.path < b.path; });
  outputs->insert(outputs->end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
  return true;
}

void Search::Visit(const Place& place, std::vector<Place>& below) {
  if (isFull) {
    return;
  }
  OutputFolder& folder = *place.folder;
  looked += folder.size();
  if (looked > kMostNames) {
    damages.push_back({folder.prefix(), "more than 1000000 names: the rest is not searched"});
    isFull = true;
  }
  const size_t before = found.size();
  for (const std::string& output : folder.Outputs()) {
    // What is being packed is in the list of the output beside this folder.
    if (FileNames::packingDirectory(output) != place.name) {
      Take(place, output, false);
    }
  }
  for (const std::string& name : folder.Folders()) {
    if (!IsMovedAway(name)) {
      below.push_back(
          {std::make_shared<OutputFolder>(folder.Sub(name), folder.prefix() + name), folder.prefix(), name});
    }
  }
  if (found.size() > before) {
    aboveOutputs.insert(place.above);
  } else {
    if (folder.MayHaveTexts()) {
      texts.back().push_back(place);
    }
    folder.Forget();
  }
}

void Search::Take(const Place& place, const std::string& output, bool isGuess) {
  Output taken;
  taken.path = place.folder->prefix() + output;
  taken.files = place.folder->FilesOf(output);
  taken.folder = place.folder;
  taken.isGuess = isGuess;
  if (!taken.files.empty()) {
    found.push_back(std::move(taken));
  }
}

void Search::TakeTexts(const Place& place) {
  if (!place.folder->Refresh()) {
    return;  // it was there before, and is named where it is wanted
  }
  for (const std::string& name : place.folder->Texts()) {
    Take(place, name, true);
  }
}

void Search::Guess() {
  const bool isSure = !found.empty();
  for (const std::vector<Place>& level : texts) {
    for (const Place& place : level) {
      if (!isSure || (!place.above.empty() && aboveOutputs.count(place.above) > 0)) {
        TakeTexts(place);
      }
    }
    if (!isSure && !found.empty()) {
      return;
    }
  }
}
