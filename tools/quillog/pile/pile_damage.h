#ifndef QUILCAT_TOOLS_QUILLOG_PILE_PILE_DAMAGE_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_PILE_DAMAGE_H_

#include <string>

/// What is wrong with a pile: something in it was not looked at or not kept. Names in it are as hostile as the pile.
struct PileDamage {
  std::string path;
  std::string what;
};

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_PILE_DAMAGE_H_
