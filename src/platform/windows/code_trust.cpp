#include "platform/code_trust.h"

#include <windows.h>

#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

#include <cstddef>
#include <utility>
#include <vector>

#include "platform/no_destructor.h"
#include "platform/real_os.h"

namespace korvane::platform {

namespace {

constexpr DWORD kDisplayNameLength = 512;
constexpr DWORD kFirstSigner = 0;
constexpr DWORD kEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

class WindowsHeldFile final : public HeldFile {
 public:
  explicit WindowsHeldFile(HANDLE file) : file_(file) {}
  ~WindowsHeldFile() override { ::CloseHandle(file_); }
  WindowsHeldFile(const WindowsHeldFile&) = delete;
  WindowsHeldFile& operator=(const WindowsHeldFile&) = delete;

  HANDLE native() const { return file_; }

 private:
  HANDLE file_;
};

struct FreeCertificate {
  void operator()(const CERT_CONTEXT* certificate) const {
    ::CertFreeCertificateContext(certificate);
  }
};
struct CloseMessage {
  void operator()(void* message) const { ::CryptMsgClose(message); }
};
struct CloseStore {
  void operator()(void* store) const { ::CertCloseStore(store, 0); }
};
using Certificate = std::unique_ptr<const CERT_CONTEXT, FreeCertificate>;
using SignedMessage = std::unique_ptr<void, CloseMessage>;
using CertificateStore = std::unique_ptr<void, CloseStore>;

// The certificate goes before the message and the store that it came with.
struct Signature {
  CertificateStore store;
  SignedMessage message;
  Certificate certificate;
};

class WindowsSignerCertificate final : public SignerCertificate {
 public:
  explicit WindowsSignerCertificate(Signature signature) : signature_(std::move(signature)) {}

  std::optional<std::array<std::uint8_t, 20>> Sha1Thumbprint() override {
    std::array<std::uint8_t, 20> thumbprint{};
    DWORD size = thumbprint.size();
    if (::CertGetCertificateContextProperty(signature_.certificate.get(), CERT_SHA1_HASH_PROP_ID,
                                            thumbprint.data(), &size) == 0 ||
        size != thumbprint.size()) {
      return std::nullopt;
    }
    return thumbprint;
  }

  std::optional<std::wstring> SimpleDisplayName() override {
    std::array<wchar_t, kDisplayNameLength> name{};
    const DWORD length =
        ::CertGetNameStringW(signature_.certificate.get(), CERT_NAME_SIMPLE_DISPLAY_TYPE, 0,
                             nullptr, name.data(), kDisplayNameLength);
    if (length < 2) {  // the final zero counts
      return std::nullopt;
    }
    return std::wstring(name.data(), length - 1);
  }

 private:
  Signature signature_;
};

// The CMSG_SIGNER_INFO record; empty on failure.
std::vector<std::byte> SignerInfoRecord(void* message) {
  DWORD size = 0;
  if (::CryptMsgGetParam(message, CMSG_SIGNER_INFO_PARAM, kFirstSigner, nullptr, &size) == 0) {
    return {};
  }
  std::vector<std::byte> record(size);
  if (::CryptMsgGetParam(message, CMSG_SIGNER_INFO_PARAM, kFirstSigner, record.data(), &size) ==
      0) {
    return {};
  }
  return record;
}

Certificate FindSignerCertificate(const Signature& signature) {
  std::vector<std::byte> record = SignerInfoRecord(signature.message.get());
  if (record.size() < sizeof(CMSG_SIGNER_INFO)) {
    return nullptr;
  }
  const auto* signer = reinterpret_cast<const CMSG_SIGNER_INFO*>(record.data());
  CERT_INFO wanted{};
  wanted.Issuer = signer->Issuer;
  wanted.SerialNumber = signer->SerialNumber;
  return Certificate(::CertFindCertificateInStore(signature.store.get(), kEncodings, 0,
                                                  CERT_FIND_SUBJECT_CERT, &wanted, nullptr));
}

class WindowsCodeTrust final : public CodeTrust {
 public:
  bool Available() override { return true; }

  Result<std::unique_ptr<HeldFile>> Hold(const std::filesystem::path& path) override {
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
      return Result<std::unique_ptr<HeldFile>>::Fail(::GetLastError());
    }
    return std::unique_ptr<HeldFile>(std::make_unique<WindowsHeldFile>(file));
  }

  std::uint32_t VerifySignature(const std::filesystem::path& path, const HeldFile& file) override {
    WINTRUST_FILE_INFO subject{};
    subject.cbStruct = sizeof(subject);
    subject.pcwszFilePath = path.c_str();
    subject.hFile = static_cast<const WindowsHeldFile&>(file).native();
    WINTRUST_DATA trust{};
    trust.cbStruct = sizeof(trust);
    trust.dwUIChoice = WTD_UI_NONE;
    trust.fdwRevocationChecks = WTD_REVOKE_NONE;
    trust.dwUnionChoice = WTD_CHOICE_FILE;
    trust.pFile = &subject;
    trust.dwStateAction = WTD_STATEACTION_VERIFY;
    trust.dwProvFlags = WTD_SAFER_FLAG | WTD_CACHE_ONLY_URL_RETRIEVAL;
    static_assert((WTD_SAFER_FLAG | WTD_CACHE_ONLY_URL_RETRIEVAL) == 0x1100);

    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    const HWND no_window = static_cast<HWND>(INVALID_HANDLE_VALUE);
    const LONG status = ::WinVerifyTrust(no_window, &action, &trust);
    trust.dwStateAction = WTD_STATEACTION_CLOSE;
    ::WinVerifyTrust(no_window, &action, &trust);
    return static_cast<std::uint32_t>(status);
  }

  SignerLookup FindSigner(const std::filesystem::path& path) override {
    HCERTSTORE store = nullptr;
    HCRYPTMSG message = nullptr;
    if (::CryptQueryObject(CERT_QUERY_OBJECT_FILE, path.c_str(),
                           CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED,
                           CERT_QUERY_FORMAT_FLAG_BINARY, 0, nullptr, nullptr, nullptr, &store,
                           &message, nullptr) == 0) {
      return {.query_failed = true, .error = ::GetLastError(), .certificate = nullptr};
    }
    Signature signature{.store = CertificateStore(store),
                        .message = SignedMessage(message),
                        .certificate = nullptr};
    signature.certificate = FindSignerCertificate(signature);
    if (signature.certificate == nullptr) {
      return {};
    }
    return {.query_failed = false,
            .error = 0,
            .certificate = std::make_unique<WindowsSignerCertificate>(std::move(signature))};
  }
};

}  // namespace

CodeTrust& RealCodeTrust() {
  static NoDestructor<WindowsCodeTrust> trust;
  return *trust;
}

}  // namespace korvane::platform
