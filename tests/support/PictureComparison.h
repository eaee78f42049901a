// Whether two pictures look alike.
#pragma once

#include <QImage>
#include <QString>
#include <string>

namespace kvltest {

// What differs between a picture and how it should look, or nothing when it looks alike.
//
// Libraries of other versions draw a letter's edges otherwise and may move a text by a fraction of
// a pixel. So both are blurred a little and compared in patches: no patch may differ much in
// brightness or colour, and few may differ at all. The size may differ by 2 in 100.
[[nodiscard]] std::string differenceOf(const QImage& picture, const QImage& expected);

// The same with the picture in a file. With KVL_WRITE_PICTURES=1 in the environment `picture` is
// written there instead, in at most 256 colours.
[[nodiscard]] std::string differenceFromFile(const QImage& picture, const QString& file);

}  // namespace kvltest
