// The TLS connection of a response that may go on for ever.
#pragma once

#include "devservice/Routes.h"

#include <openssl/types.h>
#include <sys/time.h>

#include <chrono>
#include <string>
#include <string_view>

namespace devservice {

// Every wait ends at once when the client leaves or the service ends, also the one for a client
// that does not read, which may otherwise take for ever. Lives on the thread that serves the
// connection, and only while nobody else uses that. What is written is under way at the latest when
// a wait begins or this ends: small writes in a row share packets, each in a TLS record of its own.
class StreamConnection {
 public:
  // Both must outlive this.
  StreamConnection(ServiceState& state, SSL& tls);
  ~StreamConnection();
  StreamConnection(const StreamConnection&) = delete;
  StreamConnection& operator=(const StreamConnection&) = delete;

  // One write to the TLS connection. False when nobody is there to read it.
  [[nodiscard]] bool write(std::string_view bytes);
  // The same for one HTTP chunk: head, bytes and end together. An empty one ends the response.
  [[nodiscard]] bool writeChunk(std::string_view bytes);
  // Waits until something can be written at once; false when nobody is there to read it.
  [[nodiscard]] bool waitWritable();
  // Lets that time pass; false when the client left or the service ends meanwhile.
  [[nodiscard]] bool pass(std::chrono::milliseconds time);
  // Returns when the client left or the service ends.
  void waitForEnd();

 private:
  void setHeldTogether(bool isHeld);
  // What happens to the connection in that time: its end, or a `wanted` one; 0 for neither.
  short waitFor(short wanted, int milliseconds);

  ServiceState& state_;
  SSL& tls_;
  const int socket_;
  timeval sendTimeout_{};  // the one that it had
  std::string frame_;      // of the last chunk; kept for its memory
};

}  // namespace devservice
