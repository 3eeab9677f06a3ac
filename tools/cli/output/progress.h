// A progress bar on stderr, drawn only when stderr is a terminal.
#pragma once

#include <cstddef>
#include <string>

namespace scadastore::cli {

class Progress {
 public:
  Progress(std::string label, size_t total);
  ~Progress() { Finish(); }
  void Update(size_t done);
  // Ends the bar's line; further calls do nothing.
  void Finish();

 private:
  std::string label_;
  size_t total_;
  size_t done_ = 0;
  int drawn_ = -1;  // per mille last drawn
  bool active_;
};

}  // namespace scadastore::cli
