#pragma once

#include <framewell/framewell.h>

#include <QImage>
#include <QString>
#include <QWidget>
#include <memory>

/// Shows one picture as large as fits, turned and in the shape that its stream asks for, or a
/// sentence in its place.
class PictureView : public QWidget {
public:
    explicit PictureView(QWidget* parent);

    /// @param stream  says how pixels are shaped and how the picture is to be turned.
    void show_picture(std::shared_ptr<ff::VFrameCtx> picture, const ff::StreamCtx& stream);
    void show_text(const QString& text);

    bool has_picture() const { return !m_image.isNull(); }

    QRect picture_rect() const;  ///< where the picture is, in this widget
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QImage m_image;  // shares the pixels of the library's record
    QSizeF m_shape;  // of the picture as it is to be seen
    QString m_text;
};

/// Returns the size at which pictures of the stream are to be seen.
QSizeF shown_size(const ff::StreamCtx& stream);
