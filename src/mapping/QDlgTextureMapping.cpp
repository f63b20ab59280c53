#include "mapping/QDlgTextureMapping.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QTableWidget>
#include <QVBoxLayout>

#include "camera/KvoVirtualCamera.h"
#include "commands/KvoCommands.h"
#include "mapping/KvoCtrlPointFile.h"
#include "mapping/KvoDlt.h"
#include "mapping/KvoMapping.h"
#include "scene/KvoStore.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

ref_ptr<IKvoImageInfo> record(long id)
{
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    if (getMM()->getProject(project) && project->getImageDb(db))
        db->getImageInfo(info, id);
    return info;
}

IKvoProgress* progressOf()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    return vm ? vm->getProgress() : nullptr;
}

void featherActive(long imageId)
{
    ref_ptr<IKvoAppOptions> options;
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        vm->getAppOptions(options);
    ref_ptr<IKvoMesh> mesh;
    if (options && getMM()->getTexMeshOfImage(mesh, imageId) && mesh)
        featherMesh(mesh, 0, options->getFeatherSize(), options->getFeatherHardness(), {}, progressOf());
}

} // namespace

QDlgTextureMapping::QDlgTextureMapping(QWidget* parent) : QWidget(parent)
{
    setObjectName("ZebCtrlPntMapping");
    setWindowTitle(tr("Control Point Mapping"));
    IKvoMM* mm = getMM();
    m_imageId = mm->getActiveImageId();
    if (mm->isTexEditOpen())
        mm->closeTexEdit();
    mm->getProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(m_imageId), m_savedDltBlob);
    auto* layout = new QVBoxLayout(this);
    auto* types = new QHBoxLayout();
    m_plain = new QRadioButton(tr("Plain"), this);
    m_projection = new QRadioButton(tr("Projection"), this);
    m_optimized = new QRadioButton(tr("Optimized"), this);
    m_optimized->setChecked(true);
    for (QRadioButton* b : {m_plain, m_projection, m_optimized}) {
        types->addWidget(b);
        connect(b, &QRadioButton::toggled, this, [this](bool on) {
            if (on)
                onTypeChanged();
        });
    }
    layout->addLayout(types);
    m_table = new QTableWidget(0, 3, this);
    m_table->setHorizontalHeaderLabels({tr("XERR"), tr("YERR"), tr("WGT")});
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_table, &QTableWidget::customContextMenuRequested, this, [this](const QPoint& pos) {
        QMenu menu(this);
        menu.addAction(tr("Delete Control Points"), this, &QDlgTextureMapping::deleteSelectedPoints);
        menu.addAction(tr("Import Control Points"), this, [this] {
            if (importCtrlPointsQt(m_imageId) == 0)
                refreshPoints();
        });
        menu.addAction(tr("Export Control Points"), this, [this] { exportCtrlPointsQt(m_imageId); });
        menu.exec(m_table->viewport()->mapToGlobal(pos));
    });
    connect(m_table, &QTableWidget::cellClicked, this, [this](int row, int) {
        ref_ptr<IKvoImageInfo> info = record(m_imageId);
        XPnt2d uv;
        XPnt3d w;
        if (!info || !info->getCtrlImagePnt(uv, row) || !info->getCtrlWorldPnt(w, row))
            return;
        m_coords[0]->setText(QString::asprintf("X: %.1f", w.x));
        m_coords[1]->setText(QString::asprintf("Y: %.1f", w.y));
        m_coords[2]->setText(QString::asprintf("Z: %.1f", w.z));
        m_coords[3]->setText(QString::asprintf("U: %.3f", uv.x));
        m_coords[4]->setText(QString::asprintf("V: %.3f", uv.y));
    });
    layout->addWidget(m_table, 1);
    auto* coords = new QHBoxLayout();
    const char* names[5] = {"X: ", "Y: ", "Z: ", "U: ", "V: "};
    for (int i = 0; i < 5; ++i) {
        m_coords[i] = new QLabel(names[i], this);
        coords->addWidget(m_coords[i]);
    }
    layout->addLayout(coords);
    m_removeErrors = new QCheckBox(tr("Remove Error Points"), this);
    m_snap = new QCheckBox(tr("Vertex Snap"), this);
    m_onlyUpdate = new QCheckBox(tr("Only Update Texture"), this);
    m_selectedOnly = new QCheckBox(tr("Only Mapping Selected Bare Mesh"), this);
    m_tiled = new QCheckBox(tr("Texture Tiled"), this);
    for (QCheckBox* c : {m_removeErrors, m_snap, m_onlyUpdate, m_selectedOnly, m_tiled})
        layout->addWidget(c);
    // "Only Update Texture" and the pair below it exclude each other.
    connect(m_onlyUpdate, &QCheckBox::toggled, this, [this](bool on) {
        if (on) {
            m_selectedOnly->setChecked(false);
            m_tiled->setChecked(false);
        }
    });
    for (QCheckBox* c : {m_selectedOnly, m_tiled})
        connect(c, &QCheckBox::toggled, this, [this](bool on) {
            if (on)
                m_onlyUpdate->setChecked(false);
        });
    connect(m_snap, &QCheckBox::toggled, this, [](bool on) {
        ref_ptr<IKvoModel> model;
        if (getMM()->getBareModel(model) && model)
            model->showVertices(on);
        if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
            vm->redrawModelView();
    });
    auto* fovRow = new QHBoxLayout();
    m_fov = new QSlider(Qt::Horizontal, this);
    m_fov->setRange(1000, 6000);
    m_fov->setSingleStep(5);
    m_fovText = new QLabel(this);
    fovRow->addWidget(new QLabel(tr("FOV:"), this));
    fovRow->addWidget(m_fov, 1);
    fovRow->addWidget(m_fovText);
    layout->addLayout(fovRow);
    if (mm->getVCParam(m_imageId, m_camera)) {
        calVCFrame(m_imageId, m_camera, kvoVCFrameModel, m_frame);
        calVCFrame(m_imageId, m_camera, kvoVCFramePlaced, m_previewFrame);
    }
    m_fov->setValue(int(std::lround((m_camera.fovY > 0 ? m_camera.fovY : 27.0) * 100)));
    m_fovText->setText(QString::asprintf("%.2f", m_fov->value() / 100.0));
    connect(m_fov, &QSlider::sliderReleased, this, [this] {
        m_camera.fovY = m_fov->value() / 100.0;
        m_fovText->setText(QString::asprintf("%.2f", m_camera.fovY));
        calVCParam(m_imageId, m_camera);
        m_camera.fovY = m_fov->value() / 100.0;
        getMM()->setVCParam(m_imageId, m_camera);
    });
    // Matching against a mapped reference image comes with automatic matching.
    auto* matchRow = new QHBoxLayout();
    auto* reference = new QComboBox(this);
    reference->setObjectName("referenceMesh");
    ref_ptr<MeshArray> shown;
    if (mm->getShownMeshes(shown) && shown)
        for (const ref_ptr<IKvoMesh>& m : shown->vec())
            if (m->getImageId() > 0 && m->getImageId() != m_imageId)
                reference->addItem(QString::number(m->getImageId()));
    auto* match = new QPushButton(tr("Match"), this);
    match->setEnabled(reference->count() > 0);
    connect(match, &QPushButton::clicked, this, [] { msgToolNotAvailable(tr("Auto-Select Control Points")); });
    matchRow->addWidget(reference, 1);
    matchRow->addWidget(match);
    layout->addLayout(matchRow);
    auto* buttons = new QHBoxLayout();
    auto button = [&](const QString& text, auto fn) {
        auto* b = new QPushButton(text, this);
        connect(b, &QPushButton::clicked, this, fn);
        buttons->addWidget(b);
        return b;
    };
    button(tr("Compute"), [this] { onBtnComputer(); });
    button(tr("Mapping"), [this] { onTexmapSum(); });
    button(tr("OK"), [this] { onBtnOK(); });
    button(tr("Cancel"), [this] { onBtnCancel(); });
    layout->addLayout(buttons);
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM()) {
        vm->showView(kvoModelView, true);
        vm->showView(kvoImageView, true);
    }
    reloadTable();
    onBtnComputer();
}

void QDlgTextureMapping::setPreviewState(long state)
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    ref_ptr<IZebViewer> viewer;
    ref_ptr<IKvoTrackBall> ball;
    if (vm && vm->getModelViewer(viewer) && viewer)
        viewer->getTrackBall(ball);
    if (state == 1 && m_previewState != 1 && ball && m_camera.fovY > 0) {
        m_savedEye = ball->getEye();
        m_savedCentre = ball->getCenter();
        m_savedUp = ball->getUp();
        m_savedFov = ball->getFovY();
        vm->setPhotoPreview(true);
        ball->setFovY(m_camera.fovY / (m_camera.zoom > 0 ? m_camera.zoom : 1.0));
        ball->setCamera(m_camera.eye, m_camera.center, m_camera.up);
    } else if (state == 0 && m_previewState == 1 && ball) {
        vm->setPhotoPreview(false);
        ball->setFovY(m_savedFov);
        ball->setCamera(m_savedEye, m_savedCentre, m_savedUp);
    }
    m_previewState = state;
    if (vm)
        vm->redrawModelView();
}

void QDlgTextureMapping::selectPoints(const std::vector<int>& rows)
{
    m_table->clearSelection();
    m_table->setSelectionMode(QAbstractItemView::MultiSelection);
    for (int r : rows)
        m_table->selectRow(r);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
}

void QDlgTextureMapping::setType(Type t)
{
    (t == Plain ? m_plain : t == Projection ? m_projection : m_optimized)->setChecked(true);
}

QDlgTextureMapping::Type QDlgTextureMapping::type() const
{
    return m_plain->isChecked() ? Plain : m_projection->isChecked() ? Projection : Optimized;
}

void QDlgTextureMapping::setVertexSnap(bool on)
{
    m_snap->setChecked(on);
}

bool QDlgTextureMapping::isVertexSnap() const
{
    return m_snap->isChecked();
}

void QDlgTextureMapping::setRemoveErrorPoints(bool on)
{
    m_removeErrors->setChecked(on);
}

void QDlgTextureMapping::reloadTable()
{
    ref_ptr<IKvoImageInfo> info = record(m_imageId);
    const long n = info ? std::min(info->getCtrlImagePntCount(), info->getCtrlWorldPntCount()) : 0;
    m_table->setRowCount(int(n));
    for (int r = 0; r < int(n); ++r)
        for (int c = 0; c < 3; ++c)
            m_table->setItem(r, c, new QTableWidgetItem(c == 2 ? "1.000" : "0.000"));
}

void QDlgTextureMapping::showErrors(bool haveErrors)
{
    ref_ptr<IKvoImageInfo> info = record(m_imageId);
    if (!info || !haveErrors)
        return;
    XPnt2i size;
    info->getImageSize(size, 2);
    const KvoVCProjector projector(m_frame);
    for (int r = 0; r < m_table->rowCount(); ++r) {
        XPnt2d uv;
        XPnt3d w;
        if (!info->getCtrlImagePnt(uv, r) || !info->getCtrlWorldPnt(w, r))
            continue;
        const XPnt2d p = m_computeState == 2 ? camWorldPntToImgPos(m_L, w.x, w.y, w.z) : projector.uv(w);
        m_table->item(r, 0)->setText(QString::asprintf("%.3f", (uv.x - p.x) * size.x));
        m_table->item(r, 1)->setText(QString::asprintf("%.3f", (uv.y - p.y) * size.y));
    }
}

void QDlgTextureMapping::refreshPoints()
{
    reloadTable();
    m_computeState = 0;
    onBtnComputer();
}

void QDlgTextureMapping::onTypeChanged()
{
    reloadTable();
    m_computeState = 0;
    onBtnComputer();
    const Type t = type();
    m_removeErrors->setEnabled(t == Optimized);
    if (t != Optimized)
        m_removeErrors->setChecked(false);
    m_tiled->setEnabled(t == Plain);
    m_tiled->setChecked(false);
    m_fov->setVisible(t != Plain);
    m_fovText->setVisible(t != Plain);
}

long QDlgTextureMapping::onBtnComputer()
{
    ref_ptr<IKvoImageInfo> info = record(m_imageId);
    long rc = 0;
    if (type() == Projection) {
        if (!info) {
            msgWarningQt(tr("There are not available image information."));
            return -1;
        }
        calVCParam(m_imageId, m_camera);
        calVCFrame(m_imageId, m_camera, kvoVCFrameModel, m_frame);
        calVCFrame(m_imageId, m_camera, kvoVCFramePlaced, m_previewFrame);
        m_computeState = 1;
        showErrors(true);
    } else if (type() == Optimized) {
        if (!info) {
            msgWarningQt(tr("There are not available image information."));
            return -1;
        }
        if (m_table->rowCount() < 7) {
            msgWarningQt(tr("You should get seven points at least."));
            return -1;
        }
        if (CDltFitter().fitImage(m_imageId, m_L, 3, m_removeErrors->isChecked()) > 0) {
            m_computeState = 2;
            reloadTable();
            showErrors(true);
        } else {
            reloadTable();
            msgWarningQt(tr("The correct control points' number is less than 7!"));
            rc = -1;
        }
    }
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        vm->updateViews();
    return rc;
}

long QDlgTextureMapping::onTexmapSum()
{
    IKvoMM* mm = getMM();
    if (!mm->isTexEditOpen())
        mm->openTexEdit(nullptr, 1, 0);
    IKvoProgress* progress = progressOf();
    const bool onlyUpdate = m_onlyUpdate->isChecked() && mm->isImageMapped(m_imageId);
    const bool selectedOnly = m_selectedOnly->isChecked(), tiled = m_tiled->isChecked();
    long rc = 0;
    ref_ptr<IKvoImageInfo> info = record(m_imageId);
    if (type() == Plain) {
        rc = planeMapping(onlyUpdate, !selectedOnly && !tiled, selectedOnly, tiled, progress);
        if (rc == 0 && info && info->getCtrlPntCount() > 3)
            updateDensifyPlaneMapping();
        if (rc == 0 && info)
            info->setMappingType(2);
    } else {
        if (m_computeState == 0) {
            msgWarningTitled(tr("Quovara"), tr("Please computer DLT parameters!"));
            return -1;
        }
        if (progress) {
            progress->setText(tr("Start do texture mappping..."));
            progress->step(0.01);
        }
        if (m_computeState == 2) {
            bool reserved = false;
            mm->setProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(m_imageId), m_L, sizeof m_L);
            rc = DLTMapping(m_L, onlyUpdate, true, selectedOnly, reserved, progress);
            if (rc == 0 && info)
                info->setMappingType(0);
        } else {
            KvoPrgPush push(progress, 0.79);
            VCMapping(m_camera, m_frame, onlyUpdate, selectedOnly, true, progress);
        }
    }
    if (rc != 0) {
        msgWarningQt(resultMessage(rc, type() == Plain));
        return rc;
    }
    featherActive(m_imageId);
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        vm->updateViews();
    return 0;
}

void QDlgTextureMapping::onBtnOK()
{
    IKvoMM* mm = getMM();
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        if (IZebImagePanel* images = vm->getImagePanel())
            images->refreshImage(m_imageId);
    if (mm->isTexEditOpen()) {
        mm->commitTexEdit();
        mm->closeTexEdit();
    }
    emit finished();
}

void QDlgTextureMapping::onBtnCancel()
{
    IKvoMM* mm = getMM();
    if (mm->isTexEditOpen()) {
        IKvoProgress* progress = progressOf();
        if (progress) {
            progress->setText(tr("Recovering..."));
            progress->step(0.05);
        }
        {
            KvoPrgPush push(progress, 0.95);
            mm->restoreTexEdit(progress);
        }
        mm->closeTexEdit();
    }
    const QString key = QString("%1_DLTParam").arg(m_imageId);
    if (m_savedDltBlob.isEmpty())
        mm->removeProjectBlob("ZebCtrlPntMapping", key);
    else
        mm->setProjectBlob("ZebCtrlPntMapping", key, m_savedDltBlob.constData(), m_savedDltBlob.size());
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM()) {
        if (IZebImagePanel* images = vm->getImagePanel())
            images->refreshImage(0);
        if (IZebMeshPanel* meshes = vm->getMeshPanel())
            meshes->refreshSection("Texture Mesh");
        vm->updateViews();
    }
    emit finished();
}

void QDlgTextureMapping::deleteSelectedPoints()
{
    ref_ptr<IKvoImageInfo> info = record(m_imageId);
    if (!info)
        return;
    std::vector<int> rows;
    for (const QModelIndex& i : m_table->selectionModel()->selectedRows())
        rows.push_back(i.row());
    std::sort(rows.rbegin(), rows.rend());
    for (int r : rows) {
        info->removeCtrlImagePnt(r);
        info->removeCtrlWorldPnt(r);
    }
    reloadTable();
    const char* names[5] = {"X: ", "Y: ", "Z: ", "U: ", "V: "};
    for (int i = 0; i < 5; ++i)
        m_coords[i]->setText(names[i]);
    onBtnComputer();
}

} // namespace kvo
