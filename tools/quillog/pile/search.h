#ifndef QUILCAT_TOOLS_QUILLOG_PILE_SEARCH_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_SEARCH_H_

#include <stdint.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "quillog/pile/output_files.h"
#include "quillog/pile/output_folder.h"
#include "quillog/pile/pile_damage.h"

/// Finds the outputs in a folder and those below it.
///
/// Names tell an output, except a live file's that was not rotated yet: any text may be one. It is taken for one beside
/// the directories of other outputs, since each output has its own directory, or where there are no others at all; then
/// in the highest folders that have texts.
class Search {
 public:
  explicit Search(std::vector<PileDamage>& told) : damages(told) {}

  /// Adds what it finds, sorted by path. False: the folder itself cannot be listed (errno).
  bool Find(std::shared_ptr<const Folder> folder, const std::string& path, std::vector<Output>* outputs);

 private:
  struct Place {
    std::shared_ptr<OutputFolder> folder;
    std::string above;  ///< path of the folder that this one is in
    std::string name;
  };

  void Visit(const Place& place, std::vector<Place>& below);
  void TakeTexts(const Place& place);
  void Take(const Place& place, const std::string& output, bool isGuess);
  void Guess();

  std::vector<PileDamage>& damages;
  std::vector<Output> found;
  std::vector<std::vector<Place>> texts;  ///< folders that may have some, by level
  std::set<std::string> aboveOutputs;     ///< folders in which folders with outputs are
  uint64_t looked = 0;                    ///< at names
  bool isFull = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_SEARCH_H_
