#pragma once
// TutorialPresenting: the welcome tutorial and the newsletter window that shares its
// window. Linux builds neither; the application controller holds a pointer that is null
// then, and skips what would be shown. Main thread.

namespace corvel {

class TutorialPresenting {
public:
    virtual ~TutorialPresenting() = default;
    // The tutorial on its intro pages, as the first window of the first run.
    virtual void showIntroTutorial() = 0;
    // The tutorial window on its own (from the Help menu: separate mode).
    virtual void showTutorialSeparately() = 0;
    // The newsletter subscription page, in separate mode.
    virtual void showSubscriptionWindow() = 0;
    virtual bool isTutorialOpen() const = 0;
    virtual bool isSeparateMode() const = 0;
    virtual void bringTutorialToFront() = 0;
    // Closes and forgets the tutorial window.
    virtual void closeTutorial() = 0;
    // The tutorial window turns over to reveal the scan window, then is forgotten.
    virtual void flipToScanWindow() = 0;
};

} // namespace corvel
