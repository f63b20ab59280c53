#include "planes/QDlgProjectPlaneManagement.h"

#include <QButtonGroup>
#include <QContextMenuEvent>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include <algorithm>

#include "commands/KvoCommands.h"
#include "planes/KvoRefPlaneOps.h"
#include "scene/KvoPresenter.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

void redrawViews()
{
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        vm->redrawModelView();
}

void warnSelect()
{
    showOkMessage(nullptr, QMessageBox::Warning, QObject::tr("Quovara"), QObject::tr("Please select a plane!"));
}

} // namespace

CUIPlaneManageGridCtrl::CUIPlaneManageGridCtrl(ref_ptr<IKvoQvRefPlaneMan> planes, QWidget* parent)
    : QTableWidget(parent), m_planes(std::move(planes))
{
    setColumnCount(6);
    setHorizontalHeaderLabels({tr("ID"), tr("Name"), tr("Visible"), tr("Parameter"), tr("Scope"), tr("Layer")});
    setSelectionBehavior(QAbstractItemView::SelectRows);
    verticalHeader()->hide();
    horizontalHeader()->setStretchLastSection(true);
    connect(this, &QTableWidget::itemSelectionChanged, this, &CUIPlaneManageGridCtrl::onSelectionChanged);
    connect(this, &QTableWidget::cellClicked, this, &CUIPlaneManageGridCtrl::onCellClicked);
    connect(this, &QTableWidget::itemChanged, this, &CUIPlaneManageGridCtrl::onItemChanged);
}

void CUIPlaneManageGridCtrl::refresh()
{
    m_filling = true;
    clearContents();
    setRowCount(int(m_planes->getPlaneCount()));
    int activeRow = -1;
    for (long i = 0; i < m_planes->getPlaneCount(); ++i) {
        ref_ptr<IKvoQvRefPlane> p;
        m_planes->getPlaneAt(p, i);
        const QStringList texts = planeRowTexts(*p);
        for (int c = 0; c < 6; ++c) {
            auto* item = new QTableWidgetItem(c == 2 ? QString() : texts[c]);
            if (c == 2) {
                item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
                item->setCheckState(p->isVisible() ? Qt::Checked : Qt::Unchecked);
                item->setData(Qt::UserRole, texts[2]);
            } else if (c == 1) {
                item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable);
            } else {
                item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
            }
            setItem(int(i), c, item);
        }
        if (p->getId() == m_planes->getActivePlaneId())
            activeRow = int(i);
    }
    clearSelection();
    if (activeRow >= 0)
        selectRow(activeRow);
    m_filling = false;
}

long CUIPlaneManageGridCtrl::rowId(int row) const
{
    const QTableWidgetItem* it = item(row, 0);
    return it ? it->text().toLong() : -1;
}

std::vector<long> CUIPlaneManageGridCtrl::selectedIds() const
{
    std::set<int> rows;
    for (const QModelIndex& index : selectionModel()->selectedRows())
        rows.insert(index.row());
    std::vector<long> ids;
    for (int r : rows)
        ids.push_back(rowId(r));
    return ids;
}

void CUIPlaneManageGridCtrl::onSelectionChanged()
{
    if (m_filling)
        return;
    const std::vector<long> ids = selectedIds();
    if (!ids.empty() && ids.front() != m_planes->getActivePlaneId()) {
        m_planes->setActivePlane(ids.front());
        m_planes->updateDisplay(false);
        redrawViews();
    }
    emit activePlaneChanged();
}

void CUIPlaneManageGridCtrl::onCellClicked(int row, int column)
{
    ref_ptr<IKvoQvRefPlane> p;
    if (!m_planes->getPlane(p, rowId(row)) || !p)
        return;
    QTableWidgetItem* check = item(row, 2);
    m_filling = true;
    if (column == 2) {
        const bool visible = !p->isVisible();
        p->setVisible(visible);
        check->setCheckState(visible ? Qt::Checked : Qt::Unchecked);
    } else {
        p->setVisible(true);
        check->setCheckState(Qt::Checked);
    }
    m_filling = false;
    m_planes->updateDisplay(true);
    redrawViews();
}

void CUIPlaneManageGridCtrl::onItemChanged(QTableWidgetItem* it)
{
    if (m_filling || !it || it->column() != 1)
        return;
    ref_ptr<IKvoQvRefPlane> p;
    if (m_planes->getPlane(p, rowId(it->row())) && p && p->getName() != it->text()) {
        p->setName(it->text());
        m_planes->updateDisplay(true);
    }
}

void CUIPlaneManageGridCtrl::deleteSelected()
{
    // By id, so that removing one row does not shift the next one's meaning.
    const std::vector<long> ids = selectedIds();
    if (ids.empty())
        return;
    for (long id : ids)
        m_planes->deletePlane(id);
    m_planes->updateDisplay(true);
    refresh();
    redrawViews();
    emit activePlaneChanged();
}

void CUIPlaneManageGridCtrl::showAll(bool visible)
{
    for (long i = 0; i < m_planes->getPlaneCount(); ++i) {
        ref_ptr<IKvoQvRefPlane> p;
        m_planes->getPlaneAt(p, i);
        p->setVisible(visible);
    }
    m_planes->updateDisplay(true);
    refresh();
    redrawViews();
}

bool CUIPlaneManageGridCtrl::hideOthers()
{
    const std::vector<long> ids = selectedIds();
    if (ids.empty()) {
        warnSelect();
        return false;
    }
    for (long i = 0; i < m_planes->getPlaneCount(); ++i) {
        ref_ptr<IKvoQvRefPlane> p;
        m_planes->getPlaneAt(p, i);
        p->setVisible(p->getId() == ids.front());
    }
    m_planes->updateDisplay(true);
    refresh();
    redrawViews();
    return true;
}

bool CUIPlaneManageGridCtrl::moveActivePlane(const XPnt3d& origin)
{
    const bool ok = kvo::moveActivePlane(*m_planes, origin);
    if (ok) {
        refresh();
        redrawViews();
    }
    return ok;
}

bool CUIPlaneManageGridCtrl::rotateActivePlane(int axis, double degrees, bool redraw)
{
    const bool ok = kvo::rotateActivePlane(*m_planes, axis, degrees);
    if (ok && redraw && degrees != 0) {
        refresh();
        redrawViews();
    }
    return ok;
}

void CUIPlaneManageGridCtrl::keyPressEvent(QKeyEvent* e)
{
    if (e->key() == Qt::Key_Delete) {
        deleteSelected();
        return;
    }
    QTableWidget::keyPressEvent(e);
}

void CUIPlaneManageGridCtrl::contextMenuEvent(QContextMenuEvent* e)
{
    QMenu menu(this);
    menu.addAction(tr("Delete Plane"), this, &CUIPlaneManageGridCtrl::deleteSelected);
    menu.addAction(tr("Show All"), this, [this] { showAll(true); });
    menu.addAction(tr("Hide All"), this, [this] { showAll(false); });
    menu.addAction(tr("Hide Others"), this, [this] { hideOthers(); });
    menu.exec(e->globalPos());
}

// ---------------------------------------------------------------- dialog

QDlgProjectPlaneManagement::QDlgProjectPlaneManagement(ref_ptr<IKvoQvRefPlaneMan> planes, QWidget* parent)
    : QWidget(parent), m_planes(std::move(planes))
{
    setWindowTitle(tr("Projection Plane Management"));
    setObjectName("QDlgProjectPlaneManagement");
    for (long i = 0; i < m_planes->getPlaneCount(); ++i) {
        ref_ptr<IKvoQvRefPlane> p;
        m_planes->getPlaneAt(p, i);
        m_opened.push_back(p);
    }
    auto* layout = new QVBoxLayout(this);

    auto* method = new QGroupBox(tr("Create by picking on the model"), this);
    auto* ml = new QHBoxLayout(method);
    m_three = new QRadioButton(tr("Three Points"), method);
    m_three->setObjectName("rBtn_threePoint");
    m_one = new QRadioButton(tr("One Point"), method);
    m_one->setObjectName("rBtn_OnePoint");
    m_three->setChecked(true);
    ml->addWidget(m_three);
    ml->addWidget(m_one);
    layout->addWidget(method);

    m_table = new CUIPlaneManageGridCtrl(m_planes, this);
    layout->addWidget(m_table, 1);
    auto* rowButtons = new QHBoxLayout();
    auto button = [&](const QString& text, const char* name, auto fn) {
        auto* b = new QPushButton(text, this);
        b->setObjectName(name);
        connect(b, &QPushButton::clicked, this, fn);
        rowButtons->addWidget(b);
        return b;
    };
    button(tr("Delete Plane"), "PBDeleteP", [this] { m_table->deleteSelected(); });
    button(tr("Show All"), "PBShowAllP", [this] { m_table->showAll(true); });
    button(tr("Hide All"), "PBHideAllP", [this] { m_table->showAll(false); });
    button(tr("Hide Others"), "PBHideOther", [this] { m_table->hideOthers(); });
    layout->addLayout(rowButtons);

    auto* adjustBox = new QGroupBox(tr("Adjust"), this);
    auto* al = new QGridLayout(adjustBox);
    m_move = new QRadioButton(tr("Move"), adjustBox);
    m_move->setObjectName("rbMove");
    m_rotate = new QRadioButton(tr("Rotate"), adjustBox);
    m_rotate->setObjectName("rbRotate");
    m_move->setChecked(true);
    auto* kind = new QButtonGroup(adjustBox);
    kind->addButton(m_move);
    kind->addButton(m_rotate);
    al->addWidget(m_move, 0, 0);
    al->addWidget(m_rotate, 0, 1);
    auto* axes = new QButtonGroup(adjustBox);
    const char* axisNames[3] = {"AxisX", "AxisY", "AxisZ"};
    for (int i = 0; i < 3; ++i) {
        m_axis[i] = new QRadioButton(QString("XYZ"[i]), adjustBox);
        m_axis[i]->setObjectName(axisNames[i]);
        axes->addButton(m_axis[i]);
        al->addWidget(m_axis[i], 1, i);
    }
    m_axis[0]->setChecked(true);
    al->addWidget(new QLabel(tr("Step Length:"), adjustBox), 2, 0);
    m_step = new QDoubleSpinBox(adjustBox);
    m_step->setObjectName("adjustUnit");
    m_step->setDecimals(4);
    m_step->setRange(0, 1e6);
    m_step->setValue(0.01);
    al->addWidget(m_step, 2, 1);
    auto* up = new QPushButton(tr("+"), adjustBox);
    up->setObjectName("adjustUp");
    auto* down = new QPushButton(tr("-"), adjustBox);
    down->setObjectName("adjustDown");
    al->addWidget(up, 2, 2);
    al->addWidget(down, 2, 3);
    const char* originNames[3] = {"edit_x", "edit_y", "edit_z"};
    for (int i = 0; i < 3; ++i) {
        m_origin[i] = new QLabel("0", adjustBox);
        m_origin[i]->setObjectName(originNames[i]);
        al->addWidget(m_origin[i], 3, i);
    }
    layout->addWidget(adjustBox);
    connect(m_move, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            m_step->setValue(0.01);
    });
    connect(m_rotate, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            m_step->setValue(1.0);
    });
    connect(up, &QPushButton::clicked, this, [this] { adjust(true); });
    connect(down, &QPushButton::clicked, this, [this] { adjust(false); });

    auto* finish = new QHBoxLayout();
    finish->addStretch();
    auto* ok = new QPushButton(tr("OK"), this);
    auto* cancel = new QPushButton(tr("Cancel"), this);
    connect(ok, &QPushButton::clicked, this, &QDlgProjectPlaneManagement::clickedOK);
    connect(cancel, &QPushButton::clicked, this, &QDlgProjectPlaneManagement::clickedCancel);
    finish->addWidget(ok);
    finish->addWidget(cancel);
    layout->addLayout(finish);

    connect(m_table, &CUIPlaneManageGridCtrl::activePlaneChanged, this, [this] {
        for (double& r : m_rotation)
            r = 0;
        showOrigin();
    });
    m_table->refresh();
    showOrigin();
}

bool QDlgProjectPlaneManagement::isThreePointMode() const
{
    return m_three->isChecked();
}

void QDlgProjectPlaneManagement::refreshTable()
{
    m_table->refresh();
    showOrigin();
}

void QDlgProjectPlaneManagement::showOrigin()
{
    ref_ptr<IKvoQvRefPlane> p;
    if (m_planes->getActivePlaneId() >= 0)
        m_planes->getPlane(p, m_planes->getActivePlaneId());
    const XPnt3d o = p ? p->getOrigin() : XPnt3d(0, 0, 0);
    m_adjusted[0] = o.x;
    m_adjusted[1] = o.y;
    m_adjusted[2] = o.z;
    for (int i = 0; i < 3; ++i)
        m_origin[i]->setText(p ? QString::asprintf("%.6f", m_adjusted[i]) : QString("0"));
}

QStringList QDlgProjectPlaneManagement::originTexts() const
{
    return {m_origin[0]->text(), m_origin[1]->text(), m_origin[2]->text()};
}

void QDlgProjectPlaneManagement::setStep(double step)
{
    m_step->setValue(step);
}

void QDlgProjectPlaneManagement::chooseMove(bool move)
{
    (move ? m_move : m_rotate)->setChecked(true);
}

void QDlgProjectPlaneManagement::chooseAxis(int axis)
{
    m_axis[std::clamp(axis, 0, 2)]->setChecked(true);
}

void QDlgProjectPlaneManagement::chooseThreePoints(bool three)
{
    (three ? m_three : m_one)->setChecked(true);
}

void QDlgProjectPlaneManagement::adjust(bool up)
{
    ref_ptr<IKvoQvRefPlane> p;
    if (m_planes->getActivePlaneId() < 0 || !m_planes->getPlane(p, m_planes->getActivePlaneId()) || !p) {
        warnSelect();
        return;
    }
    // The step as the spin box shows it, with a minus sign for down.
    const double shown = m_step->locale().toDouble(m_step->text());
    const double step = up ? shown : -shown;
    const int axis = m_axis[0]->isChecked() ? 0 : m_axis[1]->isChecked() ? 1 : 2;
    if (m_move->isChecked()) {
        const XPnt3d X = p->getXDir(), Y = p->getYDir();
        const XPnt3d dir = axis == 0 ? X : axis == 1 ? Y : cross(X, Y);
        const XPnt3d o = getPointByDir(p->getOrigin(), dir, step);
        m_table->moveActivePlane(o);
        showOrigin();
    } else {
        for (int i = 0; i < 3; ++i)
            m_rotation[i] = i == axis ? step : 0.0;
        for (int i = 0; i < 3; ++i)
            m_table->rotateActivePlane(i, m_rotation[i], true);
        showOrigin();
    }
}

void QDlgProjectPlaneManagement::clickedOK()
{
    emit finishedWith(true);
}

void QDlgProjectPlaneManagement::clickedCancel()
{
    // The plane objects themselves were kept: deleted ones come back, new
    // ones go, and a move or turn made on a kept plane stays.
    m_planes->clearPlanes();
    for (const auto& p : m_opened) {
        m_planes->addPlane(p);
        m_planes->setActivePlane(p->getId());
    }
    m_planes->updateDisplay(true);
    redrawViews();
    emit finishedWith(false);
}

} // namespace kvo
