// tpk-list's plans: what installing a package into a template directory
// would do with each entry, by the installer's own rule, and what the
// installer would learn from this user's starter configuration.
#pragma once

#include <string>
#include <vector>

#include "package/install_data.h"

// What an installation into a template directory would do with one entry.
enum class Action { kNew, kReplace, kKeep, kConflict };

const char* action_name(Action action);

// The action for each of `files` (in order) against the directory `dir`.
// Only looks; changes nothing.
std::vector<Action> plan(const std::string& dir, const std::vector<FileEntry>& files);

// How many entries of a plan take each action, indexed by Action.
struct PlanCounts {
  unsigned of[4] = {};
  explicit PlanCounts(const std::vector<Action>& actions);
};

// Exit status of a plan: 3 when it holds a conflict (the installation would
// fail), else 0.
int plan_status(const PlanCounts& counts);

// What the installer would learn from this user's starter configuration
// (below $HOME), as it reads it at start: the directory it proposes, the
// per-user file it writes after an installation (empty when it writes none)
// and the first directory that file lists now.
struct StarterFacts {
  std::u16string proposal;
  std::u16string file;
  bool listsAny = false;
  std::u16string first;
};

StarterFacts starter_facts();

// Prints the plan for `files` against `dir` (the directory on a first line
// when `named`), then a summary line; returns plan_status.
int print_plan(const std::string& dir, const std::vector<FileEntry>& files, bool named);
