// What the script of a page hands over beside its requests, and what it asks about answers.
#pragma once

#include <local/platform/URLRequest.h>

#include <QByteArray>
#include <QDeadlineTimer>
#include <QList>
#include <QString>
#include <deque>
#include <optional>

namespace kvl::qt {

// A body with the content type that it was written by.
struct PageRequestBody {
  QByteArray type;
  QByteArray bytes;
};

// A field's value without its parameters, in small letters.
[[nodiscard]] QByteArray kindOf(const QByteArray& value);

// The body in a field of the script's; none when it is none or too large.
[[nodiscard]] std::optional<QByteArray> bodyOfField(const QByteArray& base64);

// Forms that a page is about to submit. GUI thread.
class HandedForms {
 public:
  // As the script writes it, without the encodings that are too large. False for anything else, or
  // when nothing is left; it is dropped then.
  [[nodiscard]] bool add(const QByteArray& json);
  // The newest body for this address, in the encoding of this content type, taken out.
  [[nodiscard]] std::optional<PageRequestBody> take(const QString& address, const QByteArray& type);

 private:
  struct Form {
    QStringList addresses;
    QList<PageRequestBody> bodies;
    QDeadlineTimer end;
  };
  std::deque<Form> forms_;
};

// How the last answers began. GUI thread.
class AnswerHeads {
 public:
  void add(const QByteArray& number, const URLResponse& head);
  // As the script reads it; empty when there is none, or none any more.
  [[nodiscard]] QByteArray jsonOf(const QByteArray& number) const;

 private:
  struct Head {
    QByteArray number;
    QByteArray json;
  };
  std::deque<Head> heads_;
};

}  // namespace kvl::qt
