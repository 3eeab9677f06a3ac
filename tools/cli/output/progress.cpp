#include "tools/cli/output/progress.h"

#include <unistd.h>

#include <cstdio>

#include <fmt/format.h>

namespace scadastore::cli {

Progress::Progress(std::string label, size_t total)
    : label_(std::move(label)), total_(total), active_(isatty(STDERR_FILENO) && total > 0) {
  Update(0);
}

void Progress::Update(size_t done) {
  done_ = done;
  if (!active_) return;
  int permille = static_cast<int>(done * 1000 / total_);
  if (permille == drawn_) return;
  drawn_ = permille;
  constexpr int kWidth = 30;
  int filled = permille * kWidth / 1000;
  std::fputs(fmt::format("\r{} [{}{}] {:3}% {}/{}", label_, std::string(filled, '#'),
                         std::string(kWidth - filled, ' '), permille / 10, done, total_)
                 .c_str(),
             stderr);
  std::fflush(stderr);
}

void Progress::Finish() {
  if (!active_) return;
  std::fputs("\n", stderr);
  active_ = false;
}

}  // namespace scadastore::cli
