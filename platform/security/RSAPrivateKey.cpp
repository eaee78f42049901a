#include "platform/security/RSAPrivateKey.h"

#include <openssl/core_names.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>
#include <bit>
#include <optional>

namespace kvl::security {
namespace {

using Span = std::span<const std::uint8_t>;

constexpr std::uint8_t kInteger = 0x02;
constexpr std::uint8_t kOctetString = 0x04;
constexpr std::uint8_t kSequence = 0x30;
constexpr std::size_t kShortLength = 0x80;
// Version 0, and after it in PKCS#8 the algorithm: rsaEncryption without parameters.
constexpr std::array<std::uint8_t, 3> kVersionElement{kInteger, 1, 0};
constexpr std::array<std::uint8_t, 15> kAlgorithmElement{
    kSequence, 13, 0x06, 9, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 1, 1, 1, 0x05, 0};
// In the order of RSAPrivateKey (RFC 8017, A.1.2).
constexpr std::array<const char*, 8> kNumbers{
    OSSL_PKEY_PARAM_RSA_N,         OSSL_PKEY_PARAM_RSA_E,           OSSL_PKEY_PARAM_RSA_D,
    OSSL_PKEY_PARAM_RSA_FACTOR1,   OSSL_PKEY_PARAM_RSA_FACTOR2,     OSSL_PKEY_PARAM_RSA_EXPONENT1,
    OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1};

using Numbers = std::array<WipedBytes, kNumbers.size()>;

// Between the machine's order of bytes and DER's, which is the other one on most.
void turn(WipedBytes& number) {
  if constexpr (std::endian::native == std::endian::little) std::ranges::reverse(number);
}

void append(WipedBytes& bytes, Span more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

WipedBytes element(std::uint8_t tag, Span content) {
  WipedBytes made{tag};
  const std::size_t size = content.size();
  if (size < kShortLength) {
    made.push_back(static_cast<std::uint8_t>(size));
  } else {
    const std::size_t bytes = (static_cast<std::size_t>(std::bit_width(size)) + 7) / 8;
    made.push_back(static_cast<std::uint8_t>(kShortLength + bytes));
    for (std::size_t i = bytes; i-- > 0;)
      made.push_back(static_cast<std::uint8_t>(size >> (8 * i)));
  }
  append(made, content);
  return made;
}

// Takes an element off the front. What is not DER is found by encoding what was read.
std::optional<Span> take(Span& rest, std::uint8_t tag) {
  if (rest.size() < 2 || rest[0] != tag) return std::nullopt;
  std::size_t size = rest[1];
  std::size_t start = 2;
  if (size >= kShortLength) {
    const std::size_t bytes = size - kShortLength;
    if (bytes > sizeof(std::uint32_t) || rest.size() < start + bytes) return std::nullopt;
    size = 0;
    for (; start < 2 + bytes; ++start) size = size << 8 | rest[start];
  }
  if (size > rest.size() - start) return std::nullopt;
  const Span content = rest.subspan(start, size);
  rest = rest.subspan(start + size);
  return content;
}

bool takeExactly(Span& rest, Span expected) {
  if (rest.size() < expected.size() || !std::ranges::equal(rest.first(expected.size()), expected))
    return false;
  rest = rest.subspan(expected.size());
  return true;
}

// From the machine's order, of whatever length.
WipedBytes integer(WipedBytes number) {
  turn(number);
  const auto first = std::ranges::find_if(number, [](std::uint8_t byte) { return byte != 0; });
  number.erase(number.begin(), first);
  if (number.empty() || number.front() >= 0x80) number.insert(number.begin(), 0);
  return element(kInteger, number);
}

WipedBytes encode(const Numbers& numbers) {
  WipedBytes key(kVersionElement.begin(), kVersionElement.end());
  for (const WipedBytes& number : numbers) append(key, integer(number));
  WipedBytes info(kVersionElement.begin(), kVersionElement.end());
  append(info, kAlgorithmElement);
  append(info, element(kOctetString, element(kSequence, key)));
  return element(kSequence, info);
}

std::optional<Numbers> readNumbers(Span bytes) {
  const auto info = take(bytes, kSequence);
  if (!info || !bytes.empty()) return std::nullopt;
  Span rest = *info;
  if (!takeExactly(rest, kVersionElement) || !takeExactly(rest, kAlgorithmElement))
    return std::nullopt;
  auto content = take(rest, kOctetString);
  auto key = content && rest.empty() ? take(*content, kSequence) : std::nullopt;
  if (!key || !takeExactly(*key, kVersionElement)) return std::nullopt;
  Numbers numbers;
  for (WipedBytes& number : numbers) {
    const auto read = take(*key, kInteger);
    if (!read || read->empty()) return std::nullopt;
    number.assign(read->begin(), read->end());
    turn(number);
  }
  return numbers;
}

// OpenSSL reads and writes the numbers where they are.
std::array<OSSL_PARAM, kNumbers.size() + 1> parametersOf(Numbers& numbers) {
  std::array<OSSL_PARAM, kNumbers.size() + 1> parameters{};
  for (std::size_t i = 0; i < numbers.size(); ++i)
    parameters[i] = OSSL_PARAM_construct_BN(kNumbers[i], numbers[i].data(), numbers[i].size());
  parameters.back() = OSSL_PARAM_construct_end();
  return parameters;
}

using Big = OpenSSLPtr<BIGNUM>;

// Far beyond any key that is made here: 8192 bits.
constexpr std::size_t kLongestPrime = 512;

// From and to the most significant byte first.
Big bigNumber(Span bytes) {
  if (bytes.empty() || bytes.size() > kLongestPrime) return nullptr;
  return Big(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
}

// Null after a failure, as is everything that is made of it.
template <class Operation, class... Operands>
Big made(Operation operation, const Operands&... operands) {
  Big result((... && operands) ? BN_new() : nullptr);
  const bool isMade = result && operation(result.get(), operands.get()...) == 1;
  return isMade ? std::move(result) : nullptr;
}

// All numbers of a key in DER's order.
std::array<Big, kNumbers.size()> numbersFrom(Big exponent, Big first, Big second) {
  const OpenSSLPtr<BN_CTX> context(BN_CTX_new());
  const auto with = [&context](auto operation) {
    return
        [&context, operation](auto... operands) { return operation(operands..., context.get()); };
  };
  const auto less = [](BIGNUM* result, const BIGNUM* number) {
    return static_cast<int>(BN_sub(result, number, BN_value_one()));
  };
  const auto inverse = with([](BIGNUM* result, auto... operands) {
    return static_cast<int>(BN_mod_inverse(result, operands...) != nullptr);
  });
  for (const Big* secret : {&first, &second})
    if (*secret) BN_set_flags(secret->get(), BN_FLG_CONSTTIME);
  if (!context) return {};
  const Big firstLess = made(less, first);
  const Big secondLess = made(less, second);
  const Big common = made(with(BN_gcd), firstLess, secondLess);
  const Big product = made(with(BN_mul), firstLess, secondLess);
  const auto quotient =
      with([](BIGNUM* result, auto... operands) { return BN_div(result, nullptr, operands...); });
  const Big period = made(quotient, product, common);
  if (period) BN_set_flags(period.get(), BN_FLG_CONSTTIME);
  Big privateExponent = made(inverse, exponent, period);
  const auto rest =
      with([](BIGNUM* result, auto... operands) { return BN_div(nullptr, result, operands...); });
  Big modulus = made(with(BN_mul), first, second);
  Big firstExponent = made(rest, privateExponent, firstLess);
  Big secondExponent = made(rest, privateExponent, secondLess);
  Big coefficient = made(inverse, second, first);
  return {std::move(modulus),        std::move(exponent),   std::move(privateExponent),
          std::move(first),          std::move(second),     std::move(firstExponent),
          std::move(secondExponent), std::move(coefficient)};
}

// A key may have more than two, which the format of version 0 has no place for.
bool hasThirdPrime(const EVP_PKEY& key) {
  std::array parameters{
      OSSL_PARAM_construct_BN(OSSL_PKEY_PARAM_RSA_FACTOR3, nullptr, 0),  // asks for the size only
      OSSL_PARAM_construct_end()};
  return EVP_PKEY_get_params(&key, parameters.data()) == 1 &&
         OSSL_PARAM_modified(parameters.data()) == 1;
}

}  // namespace

WipedBytes encodeRSAPrivateKey(const EVP_PKEY& key) {
  if (EVP_PKEY_is_a(&key, "RSA") != 1 || hasThirdPrime(key)) return {};
  Numbers numbers;
  for (WipedBytes& number : numbers)
    number.resize(static_cast<std::size_t>(EVP_PKEY_get_size(&key)));
  auto parameters = parametersOf(numbers);
  if (EVP_PKEY_get_params(&key, parameters.data()) != 1) return {};
  for (const OSSL_PARAM& parameter : std::span(parameters).first(numbers.size()))
    if (OSSL_PARAM_modified(&parameter) == 0) return {};
  return encode(numbers);
}

OpenSSLPtr<EVP_PKEY> decodeRSAPrivateKey(Span bytes) {
  std::optional<Numbers> numbers = readNumbers(bytes);
  if (!numbers || !std::ranges::equal(encode(*numbers), bytes)) return nullptr;
  auto parameters = parametersOf(*numbers);
  const OpenSSLPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* key = nullptr;
  if (!context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
      EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_KEYPAIR, parameters.data()) != 1)
    return nullptr;
  return OpenSSLPtr<EVP_PKEY>(key);
}

std::optional<RSAPrimes> primesOfRSAPrivateKey(Span bytes) {
  std::optional<Numbers> numbers = readNumbers(bytes);
  if (!numbers) return std::nullopt;
  constexpr std::size_t kExponent = 1;
  constexpr std::size_t kFirst = 3;
  for (const std::size_t place : {kExponent, kFirst, kFirst + 1}) turn((*numbers)[place]);
  RSAPrimes primes{std::move((*numbers)[kExponent]), std::move((*numbers)[kFirst]),
                   std::move((*numbers)[kFirst + 1])};
  if (!std::ranges::equal(encodeRSAPrivateKey(primes), bytes)) return std::nullopt;
  return primes;
}

WipedBytes encodeRSAPrivateKey(const RSAPrimes& primes) {
  const ErrorQueueMark mark;
  const auto found =
      numbersFrom(bigNumber(primes.exponent), bigNumber(primes.first), bigNumber(primes.second));
  Numbers numbers;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (!found[i] || BN_is_negative(found[i].get())) return {};
    numbers[i].resize(static_cast<std::size_t>(BN_num_bytes(found[i].get())));
    if (BN_bn2nativepad(found[i].get(), numbers[i].data(), static_cast<int>(numbers[i].size())) < 0)
      return {};
  }
  return encode(numbers);
}

}  // namespace kvl::security
