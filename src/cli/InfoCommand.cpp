#include "InfoCommand.h"

#include <algorithm>
#include <array>
#include <vector>

#include "Cli.h"
#include "Json.h"
#include "Options.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "text/EncodingDetector.h"

namespace quorin::cli {

int runInfo(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 1> kOptions = {{{"--json"}}};
  const auto parsed = parseCommandLine("info", args, kOptions, 1, 1, err);
  if (!parsed) return kExitFailure;
  const std::string& path = parsed->positionals.front();

  auto mmap = storage::MMapWrapper::open(path);
  if (!mmap) {
    err << "quorin-cli: " << mmap.error().describe() << '\n';
    return kExitFailure;
  }
  // The encoding is chosen as opening a document chooses it: from a sample
  // of the file's first bytes, before the buffer is built.
  const auto original = storage::OriginalBuffer::make(*mmap, storage::detectFileEncoding(**mmap));

  if (parsed->has("--json")) {
    JsonWriter json(out);
    json.beginObject()
        .field("path", path)
        .field("length", original->mmap().length())
        .field("documentLength", original->documentLength())
        .field("contentStart", original->contentStart())
        .field("encoding", text::name(original->encoding()))
        .field("lineEnding", text::name(original->lineEnding()))
        .endObject();
    out << '\n';
  } else {
    out << "length: " << original->mmap().length() << '\n'
        << "documentLength: " << original->documentLength() << '\n'
        << "contentStart: " << original->contentStart() << '\n'
        << "encoding: " << text::name(original->encoding()) << '\n'
        << "lineEnding: " << text::name(original->lineEnding()) << '\n';
  }
  return kExitOk;
}

}  // namespace quorin::cli
