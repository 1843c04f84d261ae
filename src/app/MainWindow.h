#pragma once

#include <QFont>
#include <QWidget>

class QFrame;
class QLabel;

namespace brindlemark {

// The one main window: fixed 760 x 620, built once and kept for the life of the process.
// Closing it only hides it.
class MainWindow final : public QWidget {
    Q_OBJECT
public:
    static constexpr int Width = 760;
    static constexpr int Height = 620;

    MainWindow();

    QLabel* statusLabel() const { return m_statusLabel; }
    QLabel* extensionStateLabel() const { return m_extensionStateLabel; }

    // A non-interactive text at a bottom-left-origin frame inside `parent`, in the system font
    // at `fontSize` pixels (the layout's points) and the given weight.
    static QLabel* labelWithFrame(QWidget* parent, int x, int y, int width, int height,
                                  const QString& text, qreal fontSize, QFont::Weight weight);

    // A rounded, lightly filled panel at a bottom-left-origin frame inside `parent`.
    static QFrame* cardWithFrame(QWidget* parent, int x, int y, int width, int height);

private:
    QLabel* m_statusLabel = nullptr;
    QLabel* m_extensionStateLabel = nullptr;
};

} // namespace brindlemark
