#include "level_meter.h"

#include <QLinearGradient>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace {

constexpr double kLowest = -60;  // decibels at the left end; the right one is 0

/// Returns where on a bar of length 1 this many decibels are.
double place_of(double decibels) {
    return std::clamp(1 - decibels / kLowest, 0.0, 1.0);
}

}  // namespace

LevelMeter::LevelMeter(QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setToolTip(QStringLiteral("Peak of the sound around the playhead; a mark every 10 dB"));
}

void LevelMeter::show_level(double peak) {
    m_peak = peak;
    update();
}

void LevelMeter::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.fillRect(rect(), QColor(24, 24, 24));
    QLinearGradient colours(0, 0, width(), 0);
    colours.setColorAt(0, QColor(38, 140, 90));
    colours.setColorAt(place_of(-18), QColor(70, 190, 100));
    colours.setColorAt(place_of(-9), QColor(225, 190, 60));
    colours.setColorAt(1, QColor(225, 70, 60));
    if (m_peak > 0) {
        painter.fillRect(QRectF(0, 0, width() * place_of(20 * std::log10(m_peak)), height()),
                         colours);
    }
    painter.setPen(QColor(70, 70, 70));
    for (double mark = kLowest + 10; mark < 0; mark += 10) {
        const int x = static_cast<int>(width() * place_of(mark));
        painter.drawLine(x, height() - 4, x, height());
    }
}
