#pragma once

// The end of the child stacks, and the mark of a first start. Lives on the main thread.
class LifetimeManager {
  public:
    static LifetimeManager* GetInstance();

    // There is nothing to set up.
    void Init();

    // Asks the DoIP children to end and waits for each, then the SOME/IP children. A child that
    // ignores the request holds up the caller.
    void KillChilds();

    // True while the file that marks the first start as done is not there.
    bool IsFirstStart();

  private:
    LifetimeManager() = default;
};
