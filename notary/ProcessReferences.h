// References that are taken and never given back.
#pragma once

#include <memory>

namespace kvl::notary {

// Keeps `object` for the life of the process; an object that is kept already is not kept twice.
//
// Notaries and signatures never release the keys, certificates and identities that they were given.
// All those references are held in this one place, which stays reachable to the end, so that leak
// checkers keep quiet about them and go on finding real leaks. Thread-safe. Null is ignored.
void keepForProcess(std::shared_ptr<const void> object);

// How many objects are kept.
[[nodiscard]] std::size_t keptObjectCount();

}  // namespace kvl::notary
