#pragma once

#include "level_meter.h"
#include "player.h"

#include <QLabel>
#include <QProxyStyle>
#include <QSlider>
#include <QToolButton>
#include <QWidget>

/// What is below the picture: a bar to drag the playhead along, buttons, the time, a level meter.
class Controls : public QWidget {
public:
    /// The player, which the controls move, outlives them.
    Controls(Player& player, QWidget* parent);

    /// Shows where the player is and what it does.
    void show_state();

    QSlider& bar() { return m_bar; }  ///< milliseconds

    QToolButton& play_button() { return m_play; }

    QToolButton& reverse_button() { return m_reverse; }

    LevelMeter& meter() { return m_meter; }

    QString time_text() const { return m_time.text(); }

private:
    /// A click on the bar goes there at once instead of a page nearer.
    class BarStyle : public QProxyStyle {
        int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                      QStyleHintReturn* data) const override;
    };

    void lay_out();

    Player& m_player;
    BarStyle m_bar_style;  // outlives the bar
    QSlider m_bar{Qt::Horizontal, this};
    QToolButton m_play{this};
    QToolButton m_reverse{this};
    QLabel m_time{this};
    LevelMeter m_meter{this};
};
