#pragma once

#include <QColor>
#include <QWidget>

class QAbstractItemModel;
class QLabel;
class QMenuBar;
class QPushButton;
class QTableView;

namespace brindlemark {

class AppDelegate;
struct Command;

// The system colours of the light appearance; both read on light and dark themes.
inline const QColor SystemGreen{52, 199, 89};
inline const QColor SystemOrange{255, 149, 0};

// The one main window: fixed 760 x 620, laid out from absolute frames, built once and kept for
// the life of the process. Closing it only hides it. Every button acts on the controller.
class MainWindow final : public QWidget {
    Q_OBJECT
public:
    static constexpr int Width = 760;
    static constexpr int Height = 620;

    MainWindow(AppDelegate& delegate, QAbstractItemModel* templates);

    QLabel* statusLabel() const { return m_statusLabel; }
    QLabel* extensionStateLabel() const { return m_extensionStateLabel; }
    QTableView* templatesTableView() const { return m_templatesTableView; }
    // The top strip of the window (left free by the layout) holds the application's menus.
    QMenuBar* menuBar() const { return m_menuBar; }

    // Sets a label's text and the colour it is drawn in.
    static void setColouredText(QLabel* label, const QString& text, const QColor& colour);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void drawHeaderImage();
    QPushButton* commandButton(AppDelegate& delegate, int x, int y, int width,
                               const Command& command);

    QLabel* m_statusLabel = nullptr;
    QLabel* m_extensionStateLabel = nullptr;
    QTableView* m_templatesTableView = nullptr;
    QMenuBar* m_menuBar = nullptr;
};

} // namespace brindlemark
