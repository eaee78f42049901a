// What is left of a private key in the process's memory once nobody holds it.
#include "platform/security/Operations.h"
#include "tests/security/CertificateFactory.h"
#include "tests/security/KeyStoreSupport.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/Sanitized.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/types.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace kvl::security {
namespace {

// Some bytes of a key, kept so that looking for them does not find this.
class Traces {
 public:
  // Of the first prime, which takes the bytes from 562 to 690 of the encoding of a key of 2048
  // bits.
  explicit Traces(std::span<const std::uint8_t> encodedKey) {
    constexpr std::size_t kStart = 600;
    for (std::size_t i = 0; i < kSize; ++i) bytes_[i] = encodedKey[kStart + i] ^ kDisguise;
  }

  // How often they are in memory, in the order of an encoding or that of a calculation.
  [[nodiscard]] int count() const {
    int found = 0;
    std::ifstream maps("/proc/self/maps");
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    for (std::string line; std::getline(maps, line);) {
      std::size_t start = 0;
      std::size_t end = 0;
      char access[5] = {};
      if (std::sscanf(line.c_str(), "%zx-%zx %4s", &start, &end, access) != 3) continue;
      const bool isOurs = access[1] == 'w' && start != address(window_);
      for (; isOurs && start < end; start += kWindow - kSize + 1)
        found += countInWindow(memory, start, std::min(kWindow, end - start));
    }
    close(memory);
    return found;
  }

 private:
  static constexpr std::size_t kSize = 32;
  static constexpr std::size_t kWindow = std::size_t{1} << 20;
  static constexpr std::uint8_t kDisguise = 0x5a;

  static std::size_t address(const void* memory) { return reinterpret_cast<std::size_t>(memory); }

  int countInWindow(int memory, std::size_t start, std::size_t size) const {
    const ssize_t got = pread(memory, window_, size, static_cast<off_t>(start));
    int found = 0;
    for (ssize_t i = 0; i + static_cast<ssize_t>(kSize) <= got; ++i)
      found += isAt(window_ + i) ? 1 : 0;
    return found;
  }
  bool isAt(const std::uint8_t* place) const {
    const auto disguised = [](std::uint8_t a, std::uint8_t b) { return a == (b ^ kDisguise); };
    if (disguised(bytes_[0], place[0]))
      return std::equal(bytes_.begin(), bytes_.end(), place, disguised);
    return disguised(bytes_[kSize - 1], place[0]) &&
           std::equal(bytes_.rbegin(), bytes_.rend(), place, disguised);
  }

  std::array<std::uint8_t, kSize> bytes_{};
  std::uint8_t* const window_ = static_cast<std::uint8_t*>(
      mmap(nullptr, kWindow, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
};

Dictionary query(const std::string& tag) {
  return {{kSecClass, kSecClassKey},
          {kSecAttrApplicationTag, Data::fromText(tag)},
          {kSecMatchLimit, kSecMatchLimitAll}};
}

// Everything that is done with a key in its life.
Traces useKey(KeyStore& store, const std::string& tag) {
  const Dictionary parameters{
      {kSecAttrKeyType, kSecAttrKeyTypeRSA}, {kSecAttrApplicationTag, Data::fromText(tag)},
      {kSecAttrKeySizeInBits, 2048},         {kSecAttrLabel, "a label"},
      {kSecAttrComment, "a comment"},        {kSecAttrDescription, "a description"}};
  KeyRef key;
  if (SecKeyGeneratePair(store, parameters, nullptr, &key) != kSuccess) _exit(3);
  const Traces traces(encodeKey(*key));
  EVP_PKEY_up_ref(nativeKey(*key));
  const auto issued = kvltest::issue({}, nullptr, OpenSSLPtr<EVP_PKEY>(nativeKey(*key)));
  IdentityRef identity;
  std::vector<KeyRef> found;
  if (!SecKeyCreateSignature(key, sha256({}), nullptr) ||
      SecIdentityCreateWithCertificate(store, issued.reference(), identity) != kSuccess ||
      SecItemCopyMatching(store, query(tag), found) != kSuccess || traces.count() == 0)
    _exit(4);
  return traces;
}

[[noreturn]] void exitWithTraces(const std::shared_ptr<KeyStore>& store) {
  const std::string tag = kvltest::uniqueTag();
  const Traces traces = useKey(*store, tag);
  if (SecItemDelete(*store, query(tag)) != kSuccess) _exit(5);
  _exit(traces.count() == 0 ? 0 : 1);
}

class KeyTracesTest : public testing::Test {
 protected:
  void SetUp() override {
    if (kvltest::kSanitized) GTEST_SKIP() << "there is too much memory to look through";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
  }
};

TEST_F(KeyTracesTest, NothingIsLeftOfAKeyThatTheProcessKept) {
  EXPECT_EXIT(exitWithTraces(makeMemoryKeyStore()), testing::ExitedWithCode(0), "");
}

TEST_F(KeyTracesTest, NothingIsLeftOfAKeyThatTheKernelKept) {
  const std::string tag = kvltest::uniqueTag();
  if (makeKernelKeyringKeyStore()->add(kvltest::storedKey(tag), kvltest::soon()) != kSuccess)
    GTEST_SKIP() << "no kernel keyring here";
  (void)makeKernelKeyringKeyStore()->remove(tag, std::nullopt, kvltest::soon());
  EXPECT_EXIT(exitWithTraces(makeKernelKeyringKeyStore()), testing::ExitedWithCode(0), "");
}

TEST_F(KeyTracesTest, NothingIsLeftOfAKeyThatTheSecretServiceKept) {
  kvltest::PrivateBus bus;
  bus.startKeyring();
  const kvltest::SessionBusVariable variable(bus.address());
  EXPECT_EXIT(exitWithTraces(makeSecretServiceKeyStore()), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kvl::security
