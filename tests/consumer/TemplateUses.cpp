// Every template of the public headers, used as a host uses it. `uses.py` compiles this together
// with what it finds in the headers, and says which template is missing here.
#include <local/local.h>

namespace {

// Of coroutines, what awaits an operation. Nothing here runs.
template <class Operation>
[[maybe_unused]] bool await(Operation&& operation) {
  return operation.await_suspend(nullptr);
}

template <class T>
[[maybe_unused]] void useDocumentsOf(KVLSession& session, const kvl::Value& value) {
  const KVLEncoding::RelativePath path("a");
  KVLEncoding::requireObjectOfClass<T>(session, path, [](const T&) {});
  await(KVLEncoding::awaitable::requireObjectOfClass<T>(session, path));
  kvl::logLine(value.as<T>() ? kvl::typeNameOf<T>() : value.typeName());
}

[[maybe_unused]] void useDocuments(KVLSession& session, const kvl::Value& value) {
  useDocumentsOf<kvl::String>(session, value);
  useDocumentsOf<kvl::Number>(session, value);
  useDocumentsOf<kvl::Date>(session, value);
  useDocumentsOf<kvl::Data>(session, value);
  useDocumentsOf<kvl::Array>(session, value);
  useDocumentsOf<kvl::Dictionary>(session, value);
}

[[maybe_unused]] void useOperations(KVLSession& session) {
  const KVLEncoding::RelativePath path("a");
  await(KVLEncoding::awaitable::submit(kvl::Value(), path, session));
  await(KVLEncoding::awaitable::jsonFromSession(session, path).onMainQueue());
  await(KVLEncoding::awaitable::imageFromSession(session, path, {}));
  await(KVLEncoding::awaitable::submitForm(std::nullopt, std::nullopt, path, session));
}

[[maybe_unused]] kvl::Task<int> awaitInATask(KVLSession& session) {
  const auto error = co_await KVLEncoding::awaitable::established(session, {});
  co_return error ? 1 : 0;
}

[[maybe_unused]] kvl::Task<> awaitATask(KVLSession& session) {
  co_await awaitInATask(session);
  co_await KVLEncoding::awaitable::request(session, kvl::URLRequest("a"));
  co_await KVLEncoding::awaitable::downloadFromSession(session, KVLEncoding::RelativePath("a"),
                                                       "a");
  co_await KVLEncoding::awaitable::ended(session);
}

[[maybe_unused]] int runTasks(KVLSession& session) {
  kvl::run(awaitATask(session));
  return kvl::run(awaitInATask(session).on(kvl::DispatchQueue::main()));
}

[[maybe_unused]] kvl::Dictionary makeValues(const std::shared_ptr<KVLInputFile>& file) {
  return {{"boolean", true},
          {"integer", 1},
          {"unsigned", 2U},
          {"file", file},
          {"truth", kvl::Number(true)},
          {"number", kvl::Number(3L)}};
}

[[maybe_unused]] void logValues(const std::optional<kvl::Value>& value) {
  kvl::log(kvl::LogCategory::general, kvl::LogLevel::info, "%@", value);
  kvl::log("%@ %@ %@ %ld", value, std::make_shared<kvl::Array>(), kvl::Dictionary(), 1);
}

[[maybe_unused]] kvl::MenuAction makeAction() {
  return [](const std::shared_ptr<kvl::MenuItem>&) {};
}

[[maybe_unused]] bool waitHere(kvl::Condition& condition, kvl::Mutex& mutex) {
  kvl::MutexLock lock(mutex);
  return condition.waitUntil(lock, std::chrono::steady_clock::now());
}

}  // namespace

template class kvl::Atomic<int>;
