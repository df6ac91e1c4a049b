// engine_signature.h: checks the engine library's signature, and loads it.
//
// Audit only in this release: a file that fails is reported and loaded all the same, and nothing
// switches enforcement on. The file is held open from the check to the load, so that it can't be
// swapped in between. Where the system has no signature test this is the load alone, without lines.
#pragma once

#include <string>
#include <string_view>

#include "platform/dynamic_libraries.h"
#include "platform/result.h"

namespace korvane {

// Whose signature is asked for; with both empty, every valid one passes. With a thumbprint set, the
// subject isn't looked at.
struct SignerPin {
  std::wstring_view thumbprint;  // upper-case hexadecimal SHA-1 of the certificate, 40 characters
  std::wstring_view subject;     // a part of the signer's display name
};

// The pin that is built into the program: none in this release.
inline constexpr SignerPin kEngineSignerPin = {};

// Loads one candidate: the only way in which the engine gets loaded. A failure carries the error of
// the open or the load. Never stops the program.
platform::Result<platform::ModuleHandle> VerifyAndLoadEngineFile(
    const std::wstring& path, const SignerPin& pin = kEngineSignerPin);

// True when no pin is set, or when the file's signer matches it exactly.
bool VerifyEngineSigner(const std::wstring& path, const SignerPin& pin);

}  // namespace korvane
