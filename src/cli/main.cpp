#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  return quorin::cli::runCli(args, std::cout, std::cerr);
}
