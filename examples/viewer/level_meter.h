#pragma once

#include <QWidget>

/// A bar that shows how loud the sound is, in decibels below full scale.
class LevelMeter : public QWidget {
public:
    explicit LevelMeter(QWidget* parent);

    /// @param peak  the loudest sample, 1 being full scale.
    void show_level(double peak);

    double level() const { return m_peak; }

    QSize sizeHint() const override { return {160, 14}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    double m_peak = 0;
};
