#pragma once

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

} // namespace qvtest
