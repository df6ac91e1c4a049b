// Arbitrary bytes as a configuration text: each question comes to an end, and a rewritten interface
// name changes nothing else.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "vpn/config_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string mode = korvane::ClassifyConfigMode(text);
  static_cast<void>(korvane::IsTunCollisionError(text));
  try {
    static_cast<void>(korvane::FindMixedListenPort(text));
  } catch (const std::out_of_range&) {  // promised for digits that are no int
  }
  const std::string rewritten = korvane::RewriteInterfaceName(text, "tun7");
  if (mode.empty() || korvane::RewriteInterfaceName(rewritten, "tun7") != rewritten) {
    std::abort();
  }
  return 0;
}
