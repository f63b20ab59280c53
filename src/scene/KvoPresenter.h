#pragma once

#include <QMessageBox>
#include <QString>
#include <QStringList>

#include <functional>

#include "scene/KvoReferenced.h"

class QDialog;
class QWidget;

namespace kvo {

// One message box as the system asks for it.
struct QV_EXPORT KvoMessage {
    QMessageBox::Icon icon = QMessageBox::Warning;
    QString title;
    QString text;
    // Buttons in the order shown; the texts go through translation by the presenter.
    QList<QMessageBox::StandardButton> buttons;
    QMessageBox::StandardButton defaultButton = QMessageBox::NoButton;
};

// Every message box, question, file dialog and modal dialog of the system goes
// through the one presenter, so that tests can read what would be shown and
// script the answers. The default shows real Qt dialogs.
class QV_EXPORT IKvoPresenter : public KvoReferenced {
public:
    // The button chosen (QMessageBox::StandardButton), or NoButton when dismissed.
    virtual int showMessage(QWidget* parent, const KvoMessage& message) = 0;
    virtual QString getOpenFileName(QWidget* parent, const QString& caption, const QString& dir,
                                    const QString& filter) = 0;
    virtual QStringList getOpenFileNames(QWidget* parent, const QString& caption, const QString& dir,
                                         const QString& filter) = 0;
    virtual QString getSaveFileName(QWidget* parent, const QString& caption, const QString& dir,
                                    const QString& filter) = 0;
    virtual QString getExistingDirectory(QWidget* parent, const QString& caption, const QString& dir) = 0;
    // Runs a modal dialog: QDialog::Accepted or Rejected.
    virtual int execDialog(QDialog* dialog) = 0;
};

QV_EXPORT ref_ptr<IKvoPresenter> getPresenter();

// A message with an OK button only, over parent (null: the presenter's choice).
inline void showOkMessage(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text)
{
    KvoMessage m;
    m.icon = icon;
    m.title = title;
    m.text = text;
    m.buttons = {QMessageBox::Ok};
    getPresenter()->showMessage(parent, m);
}
// Installs a presenter; null goes back to the default.
QV_EXPORT void setPresenter(const ref_ptr<IKvoPresenter>& presenter);

// A presenter that shows nothing: it records every request and answers from a
// script (or with the first button, an empty file name, and Rejected).
class QV_EXPORT KvoRecordingPresenter : public IKvoPresenter {
public:
    struct Record {
        QString kind; // "message", "open", "openMany", "save", "folder", "dialog"
        QString title;
        QString text;
        QList<QMessageBox::StandardButton> buttons;
        QMessageBox::Icon icon = QMessageBox::NoIcon;
    };
    QList<Record> records;
    // Answers taken in order; when empty, the defaults above.
    QList<int> buttonAnswers;
    QStringList fileAnswers;
    // Called with each modal dialog before it would show; returns the result code.
    std::function<int(QDialog*)> dialogScript;

    int showMessage(QWidget* parent, const KvoMessage& message) override;
    QString getOpenFileName(QWidget*, const QString& caption, const QString&, const QString&) override;
    QStringList getOpenFileNames(QWidget*, const QString& caption, const QString&, const QString&) override;
    QString getSaveFileName(QWidget*, const QString& caption, const QString&, const QString&) override;
    QString getExistingDirectory(QWidget*, const QString& caption, const QString&) override;
    int execDialog(QDialog* dialog) override;

    // The last message's text, or empty.
    QString lastText() const { return records.isEmpty() ? QString() : records.last().text; }
    QString lastTitle() const { return records.isEmpty() ? QString() : records.last().title; }
};

} // namespace kvo
