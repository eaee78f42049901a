// What is left of a private key in the process's memory once nobody holds it.
#include "platform/security/Operations.h"
#include "tests/security/CertificateFactory.h"
#include "tests/security/KeyStoreKinds.h"
#include "tests/security/KeyStoreSupport.h"
#include "tests/support/Sanitized.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <sys/mman.h>
#include <sys/types.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace kvl::security {
namespace {

// Some bytes of each secret number of a key, kept so that looking for them does not find this.
class Traces {
 public:
  explicit Traces(EVP_PKEY& key) {
    constexpr std::array<const char*, kNumbers> kNames{
        OSSL_PKEY_PARAM_RSA_D,         OSSL_PKEY_PARAM_RSA_FACTOR1,
        OSSL_PKEY_PARAM_RSA_FACTOR2,   OSSL_PKEY_PARAM_RSA_EXPONENT1,
        OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1};
    for (std::size_t i = 0; i < kNumbers; ++i) {
      remember(numberOf(key, kNames[i]), pieces_[i]);
      mayBegin_[pieces_[i].front() ^ kDisguise] = true;
      mayBegin_[pieces_[i].back() ^ kDisguise] = true;
    }
  }

  // How many of the numbers are in memory, in the order of an encoding or that of a calculation.
  [[nodiscard]] std::size_t count() const {
    std::array<bool, kNumbers> found{};
    std::ifstream maps("/proc/self/maps");
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    for (std::string line; std::getline(maps, line);) {
      std::size_t start = 0;
      std::size_t end = 0;
      char access[5] = {};
      if (std::sscanf(line.c_str(), "%zx-%zx %4s", &start, &end, access) != 3) continue;
      const bool isOurs = access[1] == 'w' && start != address(window_);
      for (; isOurs && start < end; start += kWindow - kSize + 1)
        lookInWindow(memory, start, std::min(kWindow, end - start), found);
    }
    close(memory);
    return static_cast<std::size_t>(std::ranges::count(found, true));
  }

  static constexpr std::size_t kNumbers = 6;

 private:
  static constexpr std::size_t kSize = 32;
  static constexpr std::size_t kWindow = std::size_t{1} << 20;
  static constexpr std::uint8_t kDisguise = 0x5a;
  using Piece = std::array<std::uint8_t, kSize>;

  static std::size_t address(const void* memory) { return reinterpret_cast<std::size_t>(memory); }

  static WipedBytes numberOf(EVP_PKEY& key, const char* name) {
    BIGNUM* number = nullptr;
    if (EVP_PKEY_get_bn_param(&key, name, &number) != 1) _exit(6);
    WipedBytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, bytes.data());
    BN_clear_free(number);
    return bytes;
  }
  // From the middle, where no two numbers are alike.
  static void remember(const WipedBytes& number, Piece& piece) {
    const std::size_t start = (number.size() - kSize) / 2;
    for (std::size_t i = 0; i < kSize; ++i) piece[i] = number[start + i] ^ kDisguise;
  }

  void lookInWindow(int memory, std::size_t start, std::size_t size,
                    std::array<bool, kNumbers>& found) const {
    const ssize_t got = pread(memory, window_, size, static_cast<off_t>(start));
    for (ssize_t i = 0; i + static_cast<ssize_t>(kSize) <= got; ++i) {
      if (!mayBegin_[window_[i]]) continue;
      for (std::size_t number = 0; number < kNumbers; ++number)
        found[number] |= isAt(pieces_[number], window_ + i);
    }
  }
  static bool isAt(const Piece& piece, const std::uint8_t* place) {
    const auto disguised = [](std::uint8_t a, std::uint8_t b) { return a == (b ^ kDisguise); };
    return std::equal(piece.begin(), piece.end(), place, disguised) ||
           std::equal(piece.rbegin(), piece.rend(), place, disguised);
  }

  std::array<Piece, kNumbers> pieces_{};
  std::array<bool, 256> mayBegin_{};
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
  const Traces traces(*nativeKey(*key));
  EVP_PKEY_up_ref(nativeKey(*key));
  const auto issued = kvltest::issue({}, nullptr, OpenSSLPtr<EVP_PKEY>(nativeKey(*key)));
  IdentityRef identity;
  std::vector<KeyRef> found;
  if (!SecKeyCreateSignature(key, sha256({}), nullptr) ||
      SecIdentityCreateWithCertificate(store, issued.reference(), identity) != kSuccess ||
      SecItemCopyMatching(store, query(tag), found) != kSuccess ||
      traces.count() != Traces::kNumbers)
    _exit(4);
  return traces;
}

[[noreturn]] void exitWithTraces(const std::shared_ptr<KeyStore>& store) {
  const std::string tag = kvltest::uniqueTag();
  const Traces traces = useKey(*store, tag);
  if (SecItemDelete(*store, query(tag)) != kSuccess) _exit(5);
  _exit(static_cast<int>(traces.count() == 0 ? 0 : 10 + traces.count()));
}

class KeyTracesTest : public testing::TestWithParam<kvltest::StoreKind> {
 protected:
  void SetUp() override {
    if (kvltest::kSanitized) GTEST_SKIP() << "there is too much memory to look through";
    surroundings_ = GetParam().surroundings();
    if (const auto absence = surroundings_->absence(); !absence.empty()) GTEST_SKIP() << absence;
    GTEST_FLAG_SET(death_test_style, "threadsafe");
  }

  std::unique_ptr<kvltest::StoreSurroundings> surroundings_;
};

TEST_P(KeyTracesTest, NothingIsLeftOfAKeyThatAStoreKept) {
  EXPECT_EXIT(exitWithTraces(surroundings_->makeStore()), testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(Stores, KeyTracesTest, testing::ValuesIn(kvltest::storeKinds()),
                         [](const auto& param) { return param.param.name; });

}  // namespace
}  // namespace kvl::security
