// What a session is made of.
#pragma once

#include "platform/dispatch/ObserverList.h"
#include "session/DeliveryOrder.h"
#include "session/RenewalChain.h"

#include <local/KVLSession.h>
#include <local/platform/Atomic.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

struct KVLSession::Implementation {
  Implementation(std::shared_ptr<KVLNotary> initialNotary,
                 std::weak_ptr<KVLSessionDelegate> initialDelegate);

  kvl::Atomic<std::shared_ptr<KVLNotary>> notary;
  kvl::Atomic<std::weak_ptr<KVLSessionDelegate>> delegate;
  kvl::Atomic<std::shared_ptr<KVLNotarySignature>> signature;
  std::atomic<bool> awaitingSignature = false;
  kvl::Atomic<std::shared_ptr<KVLEventStreamState>> eventStream;
  kvl::Atomic<std::string> eventSource;
  kvl::Atomic<std::shared_ptr<kvl::DispatchQueue>> queue;
  kvl::Atomic<kvl::URLSessionConfiguration> configuration;
  kvl::Atomic<std::shared_ptr<kvl::URLSession>> session;
  // States and progress are told in the order in which they change.
  const std::shared_ptr<kvl::DispatchQueue> observerQueue;
  const std::shared_ptr<kvl::Progress> progress;
  kvl::session::RenewalChain renewals;
  // A renewed stream comes on another queue than the one before, whose last events are still first.
  kvl::session::DeliveryOrder deliveries;

  mutable std::mutex stateMutex;
  KVLSessionState state = KVLSessionStateConnecting;
  mutable kvl::dispatch::ObserverList<KVLSessionState> stateObservers{observerQueue};

  // The steps of a notarisation's completion; KVLSessionNotarisation.cpp has the story.
  void establish(KVLSession& owner, const KVLNotarySignature& received,
                 KVLEventStreamState& stream);
  void disestablish(KVLSession& owner);
  void showFailure(const kvl::Error& error, std::int64_t delay);
  void scheduleNotarisation(const std::shared_ptr<KVLSession>& owner, std::int64_t delay);
  void completeNotarisation(const std::shared_ptr<KVLSession>& owner,
                            std::shared_ptr<KVLNotarySignature> received,
                            const std::optional<kvl::Error>& error);
  void reconnect(const std::shared_ptr<KVLSession>& owner);
  void completeRequest(const std::shared_ptr<KVLSession>& owner, const std::string& url,
                       const std::optional<kvl::Error>& error);
};
