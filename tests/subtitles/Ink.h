#pragma once
// What a screenshot shows over a black background: the box around every drawn pixel and how many
// of them are red.
#include <QImage>
#include <QRect>

struct Ink {
    QRect box;
    int red = 0;
};

inline Ink inkOf(const QImage& image)
{
    Ink ink;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            if (qGray(pixel) < 60 && qRed(pixel) < 120) continue;
            ink.box |= QRect(x, y, 1, 1);
            if (qRed(pixel) > 180 && qGreen(pixel) < 80 && qBlue(pixel) < 80) ++ink.red;
        }
    }
    return ink;
}
