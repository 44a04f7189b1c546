#pragma once

// The end of the child stacks, and the mark of a first start. Lives on the main thread.
class LifetimeManager {
  public:
    static LifetimeManager* GetInstance();

    // There is nothing to set up.
    void Init();

    // Asks every process with the name of the DoIP stack to end, whoever started it, and prints
    // that it did; then the same for the SOME/IP stack. Waits for each of them that is a child of
    // this process before it asks the next: a child that ignores the request holds up the caller.
    void KillChilds();

    // True while the file that marks the first start as done is not there.
    bool IsFirstStart();

  private:
    LifetimeManager() = default;
};
