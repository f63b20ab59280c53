#pragma once

#include "platform/KvoProgressImpl.h"
#include "platform/ZebViewerManImpl.h"
#include "scene/KvoPresenter.h"
#include "support/TestSupport.h"

namespace qvtest {

// A store test with a fresh viewer manager and a recording presenter.
class ViewerTest : public StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        vm = kvo::installViewerMan();
        presenter = new kvo::KvoRecordingPresenter();
        kvo::setPresenter(kvo::ref_ptr<kvo::IKvoPresenter>(presenter.get()));
    }
    void TearDown() override
    {
        vm->endCurrentTask();
        zebUI::setVM(nullptr);
        vm.reset();
        kvo::setPresenter(nullptr);
        StoreTest::TearDown();
    }
    kvo::ref_ptr<kvo::CZebViewerMan> vm;
    kvo::ref_ptr<kvo::KvoRecordingPresenter> presenter;
};

// A viewer test whose viewer manager reports progress to `progress`, which
// keeps each caption it is given once in a row in `captions`.
class ProgressViewerTest : public ViewerTest {
protected:
    // Called where the test's own work begins, so that what set the scene up
    // is not among the captions.
    void watchProgress()
    {
        vm->setProgress(&progress);
        progress.setListener([this](double, const QString& caption) {
            if (captions.isEmpty() || captions.last() != caption)
                captions << caption;
        });
    }
    void TearDown() override
    {
        vm->setProgress(nullptr);
        ViewerTest::TearDown();
    }
    kvo::CKvoProgress progress;
    QStringList captions;
};

} // namespace qvtest
