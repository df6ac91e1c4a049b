// code_trust.h: whether a file carries a valid signature, and whose.
//
// Windows: WinTrust and CryptoAPI. Linux has no such test; Available() says so, and the caller then
// writes none of its audit lines.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/result.h"

namespace korvane::platform {

// A file held open for reading, shared for reading only, so that it can't be swapped or changed
// between its check and its load. Closing it is the destructor's work.
class HeldFile {
 public:
  virtual ~HeldFile() = default;
};

// The certificate of a file's first signer. Frees the certificate, the message and the store.
class SignerCertificate {
 public:
  virtual ~SignerCertificate() = default;

  // The certificate's SHA-1 (CERT_SHA1_HASH_PROP_ID, 20 bytes); nothing on failure.
  virtual std::optional<std::array<std::uint8_t, 20>> Sha1Thumbprint() = 0;

  // CertGetNameStringW with CERT_NAME_SIMPLE_DISPLAY_TYPE into a buffer of 512; nothing for a
  // result below 2.
  virtual std::optional<std::wstring> SimpleDisplayName() = 0;
};

struct SignerLookup {
  bool query_failed = false;  // CryptQueryObject failed, with `error`
  ErrorCode error = 0;
  std::unique_ptr<SignerCertificate> certificate;  // none when any later step failed
};

class CodeTrust {
 public:
  virtual ~CodeTrust() = default;

  virtual bool Available() = 0;

  // CreateFileW: GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, normal attributes. Linux: open.
  virtual Result<std::unique_ptr<HeldFile>> Hold(const std::filesystem::path& path) = 0;

  // The status of WinVerifyTrust on path and open handle: WINTRUST_ACTION_GENERIC_VERIFY_V2, no
  // user interface, no revocation checks, WTD_CHOICE_FILE, provider flags 0x1100 (safer, cached
  // URLs only: it stays off the network), window handle all ones; then the call again with
  // WTD_STATEACTION_CLOSE, whatever came of the first. 0 is a valid signature.
  virtual std::uint32_t VerifySignature(const std::filesystem::path& path,
                                        const HeldFile& file) = 0;

  // CryptQueryObject (embedded PKCS#7, binary form), CMSG_SIGNER_INFO_PARAM of the first signer,
  // CertFindCertificateInStore by CERT_FIND_SUBJECT_CERT.
  virtual SignerLookup FindSigner(const std::filesystem::path& path) = 0;
};

}  // namespace korvane::platform
