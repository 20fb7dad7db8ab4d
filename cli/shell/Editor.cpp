#include "cli/shell/Editor.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "cli/shell/ObjectPath.h"
#include "cli/shell/Words.h"

#include <histedit.h>

namespace Quarle::Cli {

namespace {

constexpr int kHistoryLines = 1000;

char* prompt(EditLine*) {
  static char text[] = "tarnlet> ";
  return text;
}

std::string historyFile() {
  const char* home = std::getenv("HOME");
  return home == nullptr || *home == 0 ? "" : std::string(home) + "/.tarnlet_history";
}

std::string commonStart(const std::vector<std::string>& words) {
  std::string common = words.front();
  for (const std::string& word : words) {
    const auto end = std::mismatch(common.begin(), common.end(), word.begin(), word.end()).first;
    common.erase(end, common.end());
  }
  return common;
}

}  // namespace

struct Editor::State {
  Completions completions;
  std::string historyFile;
  EditLine* line = nullptr;
  History* history = nullptr;

  static unsigned char complete(EditLine* line, int key);
};

unsigned char Editor::State::complete(EditLine* line, int) {
  State* state = nullptr;
  el_get(line, EL_CLIENTDATA, &state);
  const LineInfo* info = el_line(line);
  const std::string text(info->buffer, info->cursor);
  const std::vector<std::string> candidates = state->completions(text);
  if (candidates.empty()) {
    return CC_REFRESH_BEEP;
  }
  const std::string begin = text.substr(lastWordOf(text));
  std::string more = commonStart(candidates).substr(begin.size());
  // A path may go on.
  const bool isWhole = candidates.size() == 1 && !isPath(candidates[0]) &&
                       candidates[0].back() != '.' && candidates[0].back() != '=';
  if (isWhole) {
    more += ' ';
  }
  if (!more.empty()) {
    el_insertstr(line, more.c_str());
    return CC_REFRESH;
  }
  std::fputc('\n', stdout);
  for (const std::string& candidate : candidates) {
    std::printf("%s\n", candidate.c_str());
  }
  return CC_REDISPLAY;
}

Editor::Editor(Completions completions) : state_(std::make_unique<State>()) {
  state_->completions = std::move(completions);
  state_->historyFile = Cli::historyFile();
  state_->line = el_init("tarnlet", stdin, stdout, stderr);
  state_->history = history_init();
  HistEvent event;
  history(state_->history, &event, H_SETSIZE, kHistoryLines);
  history(state_->history, &event, H_SETUNIQUE, 1);
  if (!state_->historyFile.empty()) {
    history(state_->history, &event, H_LOAD, state_->historyFile.c_str());
  }
  el_set(state_->line, EL_CLIENTDATA, state_.get());
  el_set(state_->line, EL_PROMPT, &prompt);
  el_set(state_->line, EL_EDITOR, "emacs");
  el_set(state_->line, EL_SIGNAL, 1);
  el_set(state_->line, EL_HIST, &history, state_->history);
  el_set(state_->line, EL_ADDFN, "tarnlet-complete", "Complete the word", &State::complete);
  el_set(state_->line, EL_BIND, "\t", "tarnlet-complete", nullptr);
  el_set(state_->line, EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

Editor::~Editor() {
  HistEvent event;
  if (!state_->historyFile.empty()) {
    history(state_->history, &event, H_SAVE, state_->historyFile.c_str());
  }
  history_end(state_->history);
  el_end(state_->line);
}

std::optional<std::string> Editor::line() {
  int count = 0;
  const char* text = el_gets(state_->line, &count);
  if (text == nullptr || count <= 0) {
    return std::nullopt;
  }
  std::string line(text, static_cast<std::size_t>(count));
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
    line.pop_back();
  }
  if (line.find_first_not_of(" \t") != std::string::npos) {
    HistEvent event;
    history(state_->history, &event, H_ENTER, line.c_str());
  }
  return line;
}

}  // namespace Quarle::Cli
