#pragma once

// AccessibleElement is an opaque handle to one user-interface element of another application, as
// handed out by an AccessibilityClient (an AXUIElementRef on macOS, an AtspiAccessible on Linux).
// Backends subclass it; callers only pass it back to the client that created it. Shared ownership:
// the handle stays valid while held, even if the element itself has gone (then reads fail).

namespace kelvo::platform {

class AccessibleElement {
  public:
    virtual ~AccessibleElement() = default;
};

}  // namespace kelvo::platform
