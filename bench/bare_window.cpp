// The baseline of the start-up and idle-memory rows: a bare Qt window of Brindlemark's size with a
// table of six rows, shown at once. It reads and writes nothing, so what Brindlemark costs beyond
// it is its own doing: its settings, templates, tools, menus and window elements.
#include <QApplication>
#include <QStandardItemModel>
#include <QTableView>
#include <QWidget>

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QStandardItemModel model(6, 5);
    for (int row = 0; row < model.rowCount(); ++row)
        for (int column = 0; column < model.columnCount(); ++column)
            model.setItem(
                row, column,
                new QStandardItem(QStringLiteral("Item %1.%2").arg(row + 1).arg(column + 1)));
    QWidget window;
    window.resize(760, 620);
    QTableView table(&window);
    table.setModel(&model);
    table.setGeometry(20, 140, 720, 220);
    window.show();
    return application.exec();
}
