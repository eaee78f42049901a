#include <local/qt/Conversions.h>

#include <QByteArray>
#include <QDateTime>
#include <QTimeZone>
#include <cmath>
#include <cstdint>

namespace kvl::qt {
namespace {

constexpr double kMillisecondsPerSecond = 1000;
// What a QDateTime surely takes, some 200,000 years on either side.
constexpr double kMostSeconds = 6.3e12;

QVariant variantWithin(const Value& value, int room);

QDateTime dateTime(Date date) {
  const double seconds = date.secondsSince1970();
  if (!(std::abs(seconds) <= kMostSeconds)) return {};
  return QDateTime::fromMSecsSinceEpoch(
      static_cast<qint64>(std::llround(seconds * kMillisecondsPerSecond)), Qt::UTC);
}

QVariantList listOf(const Array& array, int room) {
  QVariantList list;
  list.reserve(static_cast<qsizetype>(array.size()));
  for (const Value& element : array) list.append(variantWithin(element, room));
  return list;
}

QVariantMap mapOf(const Dictionary& dictionary, int room) {
  QVariantMap map;
  for (const auto& [key, element] : dictionary)
    map.insert(qString(key), variantWithin(element, room));
  return map;
}

QByteArray bytesOf(const Data& data) {
  return {reinterpret_cast<const char*>(data.data()), static_cast<qsizetype>(data.size())};
}

// `room` is how many arrays and dictionaries may be within each other.
QVariant variantWithin(const Value& value, int room) {
  switch (value.kind()) {
    case Value::Kind::boolean:
      return *value.boolean();
    case Value::Kind::integer:
      return static_cast<qlonglong>(*value.integer());
    case Value::Kind::real:
      return *value.real();
    case Value::Kind::date:
      return dateTime(*value.date());
    case Value::Kind::string:
      return qString(*value.string());
    case Value::Kind::data:
      return bytesOf(*value.data());
    case Value::Kind::array:
      if (room > 0) return listOf(*value.array(), room - 1);
      break;
    case Value::Kind::dictionary:
      if (room > 0) return mapOf(*value.dictionary(), room - 1);
      break;
    case Value::Kind::null:
    case Value::Kind::object:
      break;
  }
  return QVariant::fromValue(nullptr);
}

Value valueWithin(const QVariant& variant, int room);

template <class List>
Value arrayOf(const List& list, int room) {
  Array array;
  if (room < 0) return {};
  for (const auto& element : list) array.append(valueWithin(element, room));
  return array;
}

template <class Map>
Value dictionaryOf(const Map& map, int room) {
  Dictionary dictionary;
  if (room < 0) return {};
  for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
    dictionary.set(utf8(entry.key()), valueWithin(entry.value(), room));
  return dictionary;
}

Value dateOf(const QDateTime& time) {
  if (!time.isValid()) return {};
  return Date::since1970(static_cast<double>(time.toMSecsSinceEpoch()) / kMillisecondsPerSecond);
}

Value dataOf(const QByteArray& bytes) {
  return Data::fromText({bytes.constData(), static_cast<std::size_t>(bytes.size())});
}

Value valueWithin(const QVariant& variant, int room) {
  switch (variant.typeId()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
      return {};
    case QMetaType::Bool:
      return variant.toBool();
    case QMetaType::Float:
    case QMetaType::Double:
      return variant.toDouble();
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
      return static_cast<std::uint64_t>(variant.toULongLong());
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::SChar:
      return static_cast<std::int64_t>(variant.toLongLong());
    case QMetaType::QDateTime:
      return dateOf(variant.toDateTime());
    case QMetaType::QByteArray:
      return dataOf(variant.toByteArray());
    case QMetaType::QStringList:
    case QMetaType::QVariantList:
      return arrayOf(variant.toList(), room - 1);
    case QMetaType::QVariantMap:
      return dictionaryOf(variant.toMap(), room - 1);
    case QMetaType::QVariantHash:
      return dictionaryOf(variant.toHash(), room - 1);
    default:
      return variant.canConvert<QString>() ? Value(utf8(variant.toString())) : Value();
  }
}

}  // namespace

QVariant variant(const Value& value) {
  return variantWithin(value, kDeepestVariant);
}

Value value(const QVariant& variant) {
  return valueWithin(variant, kDeepestVariant);
}

}  // namespace kvl::qt
