#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "Cli.h"

namespace quorin::cli {

// What one command line printed and returned.
struct Outcome {
  int status;
  std::string out, err;
  bool operator==(const Outcome&) const = default;
  friend void PrintTo(const Outcome& o, std::ostream* os) {
    *os << o.status << " out=" << ::testing::PrintToString(o.out)
        << " err=" << ::testing::PrintToString(o.err);
  }
};

inline Outcome run(std::vector<std::string> args) {
  std::ostringstream out, err;
  const int status = runCli(args, out, err);
  return {status, out.str(), err.str()};
}

}  // namespace quorin::cli
