#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `follow [--from-start] FILE`: prints what is appended to FILE as it
// arrives, like `tail -F`: checked once a second, at most an adaptive cap
// per check; truncation starts again from the new end, a rotation switches
// to the file that now has the name, a deletion ends the command. Events go
// to stderr in the editor's own words. Runs until interrupted or deleted.
int runFollow(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
