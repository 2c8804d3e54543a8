#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "Interrupt.h"
#include "Progress.h"

int main(int argc, char** argv) {
  // Before any thread starts, so that every thread inherits the blocked signals.
  quorin::cli::installInterruptHandling();
  quorin::cli::setProgressEnabled(::isatty(STDERR_FILENO) == 1);
  const std::vector<std::string> args(argv + 1, argv + argc);
  const int status = quorin::cli::runCli(args, std::cout, std::cerr);
  std::cout.flush();
  return status;
}
