#pragma once

#include <QWidget>

#include "modelio/KvoModelExport.h"

class QCheckBox;
class QLineEdit;
class QPushButton;
class QTableWidget;

namespace kvo {

// "Export Mesh": the table of meshes and the choices of the export.
class QV_EXPORT QDlgOutputModel : public QWidget {
    Q_OBJECT
public:
    explicit QDlgOutputModel(QWidget* parent = nullptr);

    // Fills the table from the project's meshes; false (after "Mesh is Null!") when there is none.
    bool initRows();

    int rowCount() const;
    bool isRowExported(int row) const;
    void setRowExported(int row, bool on);
    // -1 for a row without the box (a bare mesh).
    int rowResample(int row) const;
    void setRowResample(int row, bool on);
    QString rowName(int row) const;
    QString rowPath(int row) const;
    void setRowPath(int row, const QString& path);
    bool isRowPathMarked(int row) const;

    void setExportPath(const QString& path);
    void setUvPath(const QString& path);
    QCheckBox* singleMeshBox() const { return m_single; }
    QCheckBox* clipBox() const { return m_clip; }
    QCheckBox* recalcBox() const { return m_recalc; }
    QCheckBox* originBox() const { return m_origin; }
    QCheckBox* swapBox() const { return m_swap; }
    QCheckBox* pow2Box() const { return m_pow2; }

    // Atlas size of the single-mesh export (8192 unless a host says otherwise).
    void setAtlasSize(long size) { m_atlasSize = size; }
    long lastResult() const { return m_lastResult; }
    const KvoExportReport& lastReport() const { return m_report; }

public slots:
    void clickedExport();
    void clickedOK();
    void clickedSavePath();
    void clickedUvPath();
    void clickedUnionCB(bool checked);
    void clickedClipCB(bool checked);
    void clickedSelectAll();
    void clickedRevertSelect();
    void clickedClearAll();
    void clickedAllDB();
    void clickedAllOut();

private:
    void showContextMenu(const QPoint& at);
    ref_ptr<ExportInfoArray> collectRows() const;

    QTableWidget* m_table;
    QLineEdit* m_exportPath;
    QLineEdit* m_uvPath;
    QPushButton* m_uvButton;
    QCheckBox* m_clip;
    QCheckBox* m_single;
    QCheckBox* m_recalc;
    QCheckBox* m_origin;
    QCheckBox* m_swap;
    QCheckBox* m_pow2;
    std::vector<ref_ptr<IKvoMesh>> m_meshes;
    bool m_singleFlag = false;
    long m_atlasSize = 8192;
    long m_lastResult = 0;
    KvoExportReport m_report;
};

} // namespace kvo
