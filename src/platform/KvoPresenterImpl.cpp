#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QPushButton>

#include "scene/KvoPresenter.h"

namespace kvo {

namespace {

QString buttonText(QMessageBox::StandardButton b)
{
    switch (b) {
    case QMessageBox::Ok: return QCoreApplication::translate("Quovara", "Ok");
    case QMessageBox::Yes: return QCoreApplication::translate("Quovara", "Yes");
    case QMessageBox::No: return QCoreApplication::translate("Quovara", "No");
    case QMessageBox::Cancel: return QCoreApplication::translate("Quovara", "Cancel");
    default: return QString();
    }
}

class CKvoQtPresenter : public IKvoPresenter {
public:
    int showMessage(QWidget* parent, const KvoMessage& m) override
    {
        QMessageBox box(m.icon, m.title, m.text, QMessageBox::NoButton, parent);
        for (QMessageBox::StandardButton b : m.buttons) {
            box.addButton(b);
            if (QAbstractButton* btn = box.button(b); btn && !buttonText(b).isEmpty())
                btn->setText(buttonText(b));
        }
        if (m.defaultButton != QMessageBox::NoButton)
            box.setDefaultButton(m.defaultButton);
        box.exec();
        QAbstractButton* clicked = box.clickedButton();
        return clicked ? int(box.standardButton(clicked)) : int(QMessageBox::NoButton);
    }
    QString getOpenFileName(QWidget* parent, const QString& caption, const QString& dir, const QString& filter) override
    {
        return QFileDialog::getOpenFileName(parent, caption, dir, filter);
    }
    QStringList getOpenFileNames(QWidget* parent, const QString& caption, const QString& dir,
                                 const QString& filter) override
    {
        return QFileDialog::getOpenFileNames(parent, caption, dir, filter);
    }
    QString getSaveFileName(QWidget* parent, const QString& caption, const QString& dir, const QString& filter) override
    {
        return QFileDialog::getSaveFileName(parent, caption, dir, filter);
    }
    QString getExistingDirectory(QWidget* parent, const QString& caption, const QString& dir) override
    {
        return QFileDialog::getExistingDirectory(parent, caption, dir);
    }
    int execDialog(QDialog* dialog) override { return dialog ? dialog->exec() : QDialog::Rejected; }
};

ref_ptr<IKvoPresenter>& slot()
{
    static ref_ptr<IKvoPresenter> presenter;
    return presenter;
}

} // namespace

ref_ptr<IKvoPresenter> getPresenter()
{
    if (!slot())
        slot() = new CKvoQtPresenter();
    return slot();
}

void setPresenter(const ref_ptr<IKvoPresenter>& presenter)
{
    slot() = presenter;
}

int KvoRecordingPresenter::showMessage(QWidget*, const KvoMessage& m)
{
    records.append({"message", m.title, m.text, m.buttons, m.icon});
    if (!buttonAnswers.isEmpty())
        return buttonAnswers.takeFirst();
    return m.buttons.isEmpty() ? int(QMessageBox::NoButton) : int(m.buttons.first());
}

QString KvoRecordingPresenter::getOpenFileName(QWidget*, const QString& caption, const QString&, const QString&)
{
    records.append({"open", caption, QString(), {}, QMessageBox::NoIcon});
    return fileAnswers.isEmpty() ? QString() : fileAnswers.takeFirst();
}

QStringList KvoRecordingPresenter::getOpenFileNames(QWidget*, const QString& caption, const QString&, const QString&)
{
    records.append({"openMany", caption, QString(), {}, QMessageBox::NoIcon});
    QStringList all = fileAnswers;
    fileAnswers.clear();
    return all;
}

QString KvoRecordingPresenter::getSaveFileName(QWidget*, const QString& caption, const QString&, const QString&)
{
    records.append({"save", caption, QString(), {}, QMessageBox::NoIcon});
    return fileAnswers.isEmpty() ? QString() : fileAnswers.takeFirst();
}

QString KvoRecordingPresenter::getExistingDirectory(QWidget*, const QString& caption, const QString&)
{
    records.append({"folder", caption, QString(), {}, QMessageBox::NoIcon});
    return fileAnswers.isEmpty() ? QString() : fileAnswers.takeFirst();
}

int KvoRecordingPresenter::execDialog(QDialog* dialog)
{
    records.append({"dialog", dialog ? dialog->windowTitle() : QString(), QString(), {}, QMessageBox::NoIcon});
    return dialogScript ? dialogScript(dialog) : int(QDialog::Rejected);
}

} // namespace kvo
