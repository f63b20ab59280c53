#pragma once

#include <QTableWidget>
#include <QWidget>

#include <set>

#include "scene/KvoRefPlane.h"

class QRadioButton;
class QDoubleSpinBox;
class QLabel;
class QPushButton;

namespace kvo {

// The table of the project's planes: "ID", "Name", "Visible", "Parameter",
// "Scope", "Layer". Selecting a row makes its plane active.
class QV_EXPORT CUIPlaneManageGridCtrl : public QTableWidget {
    Q_OBJECT
public:
    explicit CUIPlaneManageGridCtrl(ref_ptr<IKvoQvRefPlaneMan> planes, QWidget* parent = nullptr);
    void refresh();
    // The ids of the selected rows.
    std::vector<long> selectedIds() const;
    void deleteSelected();
    void showAll(bool visible);
    // False (with a warning) when no row is selected.
    bool hideOthers();
    bool moveActivePlane(const XPnt3d& origin);
    bool rotateActivePlane(int axis, double degrees, bool redraw);

signals:
    void activePlaneChanged();

protected:
    void keyPressEvent(QKeyEvent* e) override;
    void contextMenuEvent(QContextMenuEvent* e) override;

private:
    void onSelectionChanged();
    void onCellClicked(int row, int column);
    void onItemChanged(QTableWidgetItem* item);
    long rowId(int row) const;

    ref_ptr<IKvoQvRefPlaneMan> m_planes;
    bool m_filling = false;
};

// "Projection Plane Management": creation by picking (three points or one),
// the table, and moving or rotating the active plane. OK keeps the planes as
// they are; Cancel brings back the planes there were when it opened.
class QV_EXPORT QDlgProjectPlaneManagement : public QWidget {
    Q_OBJECT
public:
    explicit QDlgProjectPlaneManagement(ref_ptr<IKvoQvRefPlaneMan> planes, QWidget* parent = nullptr);
    bool isThreePointMode() const;
    void refreshTable();
    CUIPlaneManageGridCtrl* table() const { return m_table; }
    // The adjustment buttons: up uses the step as it stands, down its negative.
    void adjust(bool up);
    void clickedOK();
    void clickedCancel();
    // The origin labels (x, y, z) as shown.
    QStringList originTexts() const;
    void setStep(double step);
    void chooseMove(bool move);
    void chooseAxis(int axis);
    void chooseThreePoints(bool three);

signals:
    // After OK (true) or Cancel (false).
    void finishedWith(bool accepted);

private:
    void showOrigin();

    ref_ptr<IKvoQvRefPlaneMan> m_planes;
    std::vector<ref_ptr<IKvoQvRefPlane>> m_opened;
    CUIPlaneManageGridCtrl* m_table;
    QRadioButton *m_three, *m_one, *m_move, *m_rotate, *m_axis[3];
    QDoubleSpinBox* m_step;
    QLabel* m_origin[3];
    double m_adjusted[3] = {0, 0, 0};
    double m_rotation[3] = {0, 0, 0};
};

} // namespace kvo
