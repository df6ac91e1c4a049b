// samples.h: the texts that are measured on. The same ones in every run.
#pragma once

#include <cstddef>
#include <string>

namespace korvane::bench {

// Lines of an engine's log of at least so many bytes. Some lines of a mixed one hold what has to
// go: colours, encodings, URLs, addresses, hosts and long tokens. A clean one holds none.
std::string MixedEngineLog(std::size_t bytes);
std::string CleanEngineLog(std::size_t bytes);

// A clean line of 127 bytes, as the host records them.
std::string Breadcrumb();

// A configuration of at least so many bytes, indented, with its inbounds in front of its many
// outbounds and its rules.
std::string Configuration(std::size_t bytes);

}  // namespace korvane::bench
