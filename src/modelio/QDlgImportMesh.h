#pragma once

#include <QDialog>

#include "scene/KvoFileSystem.h"

class QLabel;
class QTableWidget;

namespace kvo {

// Imports images, and texture meshes when both projects hold the same model,
// from another project into the open one.
class QV_EXPORT QDlgImportMesh : public QDialog {
    Q_OBJECT
public:
    explicit QDlgImportMesh(QWidget* parent = nullptr);

    // Reads the other project: 0, or -1 with lastError() (an empty name is refused).
    long initFromProject(const QString& file);
    QString lastError() const { return m_error; }
    bool isSameModel() const { return m_same; }
    QString messageText() const;

    int rowCount() const;
    long rowImageId(int row) const;
    QString rowMeshName(int row) const;
    void setRowChecked(int row, bool checked);
    // The Import button: imports the checked rows and closes; false when none was checked.
    bool importChecked();
    // Ids the last import gave the images, in row order.
    const std::vector<long>& importedIds() const { return m_imported; }

private:
    // One image of the other project; returns the new id or -1.
    long importImage(long sourceId, bool withMesh);

    QTableWidget* m_table;
    QLabel* m_message;
    ref_ptr<IKvoFileSystem> m_source;
    ref_ptr<IKvoImageDb> m_sourceDb;
    ref_ptr<IKvoModel> m_sourceModel;
    bool m_same = false;
    QString m_error;
    std::vector<long> m_imported;
};

} // namespace kvo
