#pragma once

namespace Kestrion {

class Algorithm;

/// Base of the controllers that the host puts on an algorithm (panels in the desktop host).
/// A controller is made by an AlgorithmControllerFactory for one algorithm, which it does not
/// own; the host keeps the algorithm alive while the controller exists, and calls init() once
/// after the controller has been created and placed.
class AlgorithmController {
public:
    explicit AlgorithmController(Algorithm* algorithm);
    virtual ~AlgorithmController();
    AlgorithmController(const AlgorithmController&) = delete;
    AlgorithmController& operator=(const AlgorithmController&) = delete;

    Algorithm* algorithm() const { return m_algorithm; }

    /// Binds the controller to its algorithm's current state. Subclasses call the base first.
    virtual void init();
    bool isInitialized() const { return m_initialized; }

private:
    Algorithm* m_algorithm;
    bool m_initialized = false;
};

} // namespace Kestrion
