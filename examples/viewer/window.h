#pragma once

#include "controls.h"
#include "picture_view.h"
#include "player.h"

#include <QWidget>
#include <memory>

/// The viewer: a picture and the controls below it.
/// Keys: space plays and pauses, R turns, left and right step, Home and End jump, Escape closes.
class Window : public QWidget, private Player::Listener {
public:
    Window();

    /// Shows the file from its start. False: it cannot be shown; error() and the window say why.
    bool open(const QString& path);

    QString error() const { return m_error; }

    Player& player() { return m_player; }

    Controls& controls() { return m_controls; }

    const PictureView& view() const { return m_view; }

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void show_picture(const std::shared_ptr<ff::VFrameCtx>& picture) override;
    void show_level(double peak) override;
    void show_state() override;

    /// Does what `key` means to the player. False: nothing.
    bool steer(int key);

    Player m_player{this};  // tells the others nothing outside of the event loop and of its calls
    PictureView m_view{this};
    Controls m_controls{m_player, this};
    QString m_error;
};
