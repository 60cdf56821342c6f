#include "app/utf8_text.h"

namespace velmar::app {

std::string Utf8ChunkDecoder::decode(std::string_view chunk) {
  std::string bytes = std::move(pending_);
  pending_.clear();
  bytes.append(chunk);
  size_t tail = incompleteUtf8Tail(bytes);
  pending_.assign(bytes, bytes.size() - tail, tail);
  bytes.resize(bytes.size() - tail);
  if (!isValidUtf8(bytes)) {
    // The whole chunk goes, tail included: what follows broken bytes is not
    // trusted to be the start of a character either.
    pending_.clear();
    return std::string();
  }
  return bytes;
}

}  // namespace velmar::app
