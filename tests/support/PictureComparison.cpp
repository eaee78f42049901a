#include "tests/support/PictureComparison.h"

#include <QColor>
#include <QHash>
#include <QImageWriter>
#include <QList>
#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace kvltest {
namespace {

constexpr double kSizeTolerance = 0.02;
// The side of a patch, in points: less than half of a check mark.
constexpr int kPatch = 4;
// Of 255, in any of red, green and blue, after averaging.
constexpr int kSlightDifference = 24;
constexpr int kGreatDifference = 48;
constexpr double kMostSlightlyDifferent = 0.03;

bool isNear(int one, int other) {
  return std::abs(one - other) <= kSizeTolerance * std::max(one, other);
}

std::string sizeText(const QSize& size) {
  return std::to_string(size.width()) + " x " + std::to_string(size.height());
}

// Each pixel is the mean of a patch.
QImage patches(const QImage& picture, const QSize& size) {
  return picture.convertToFormat(QImage::Format_RGB32)
      .scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

int distance(QRgb one, QRgb other) {
  return std::max({std::abs(qRed(one) - qRed(other)), std::abs(qGreen(one) - qGreen(other)),
                   std::abs(qBlue(one) - qBlue(other))});
}

struct Tally {
  int slight = 0;
  int greatest = 0;
  QPoint where;
};

Tally compared(const QImage& one, const QImage& other) {
  Tally tally;
  for (int y = 0; y < one.height(); ++y)
    for (int x = 0; x < one.width(); ++x) {
      const int difference = distance(one.pixel(x, y), other.pixel(x, y));
      tally.slight += difference > kSlightDifference;
      if (difference <= tally.greatest) continue;
      tally.greatest = difference;
      tally.where = {x, y};
    }
  return tally;
}

constexpr qsizetype kMostColours = 256;

QList<QRgb> commonestColours(const QImage& picture) {
  QHash<QRgb, int> counts;
  for (int y = 0; y < picture.height(); ++y)
    for (int x = 0; x < picture.width(); ++x) ++counts[picture.pixel(x, y)];
  QList<QRgb> colours = counts.keys();
  std::ranges::sort(colours, [&](QRgb one, QRgb other) {
    return std::pair(counts[one], one) > std::pair(counts[other], other);
  });
  return colours.first(std::min(colours.size(), kMostColours));
}

std::string write(const QImage& picture, const QString& file) {
  constexpr int kBest = 100;
  QImageWriter writer(file);
  writer.setCompression(kBest);
  const bool written = writer.write(picture.convertToFormat(
      QImage::Format_Indexed8, commonestColours(picture), Qt::ThresholdDither | Qt::AvoidDither));
  return written ? std::string() : "the picture cannot be written";
}

}  // namespace

std::string differenceOf(const QImage& picture, const QImage& expected) {
  if (picture.isNull() || expected.isNull()) return "there is no picture";
  if (!isNear(picture.width(), expected.width()) || !isNear(picture.height(), expected.height()))
    return "the size is " + sizeText(picture.size()) + " instead of " + sizeText(expected.size());
  const int patch = std::max(1, static_cast<int>(kPatch * picture.devicePixelRatio()));
  const QSize size = (expected.size() / patch).expandedTo({1, 1});
  const Tally tally = compared(patches(picture, size), patches(expected, size));
  const double share = double(tally.slight) / (size.width() * size.height());
  if (tally.greatest <= kGreatDifference && share <= kMostSlightlyDifferent) return {};
  std::ostringstream text;
  text << share * 100 << " % of the patches differ, most (" << tally.greatest << " of 255) at "
       << tally.where.x() * patch << ", " << tally.where.y() * patch;
  return text.str();
}

std::string differenceFromFile(const QImage& picture, const QString& file) {
  if (qEnvironmentVariableIsSet("KVL_WRITE_PICTURES")) return write(picture, file);
  return differenceOf(picture, QImage(file));
}

}  // namespace kvltest
