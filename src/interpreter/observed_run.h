// The guards that tell an observer of a run: their ends are told on every way out. Without an
// observer they do nothing.
#pragma once

#include <exception>

#include "interpreter/dovrel_script.h"
#include "interpreter/run_observer.h"

/// A call whose body runs.
class ObservedCall {
public:
    ObservedCall(DovrelScript& interpreter, const ScriptCallable& callable, Arguments args) {
        observer_ = interpreter.observer;
        if (observer_ == nullptr) return;
        exceptions_ = std::uncaught_exceptions();
        observer_->callBegins(callable, args);
    }
    ~ObservedCall() {
        if (observer_ == nullptr) return;
        observer_->callEnds(std::uncaught_exceptions() > exceptions_ ? CallEnd::Raised
                            : willRepeat_                            ? CallEnd::WillRepeat
                                                                     : CallEnd::Returned);
    }
    ObservedCall(const ObservedCall&) = delete;
    ObservedCall& operator=(const ObservedCall&) = delete;

    /// Notes what the scalar tier has said, and gives it back.
    bool answered(bool isAnswer) {
        willRepeat_ = !isAnswer;
        return isAnswer;
    }

private:
    RunObserver* observer_ = nullptr;
    int exceptions_ = 0;
    bool willRepeat_ = false;
};

/// A program of the host's.
class ObservedProgram {
public:
    ObservedProgram(const DovrelScript& interpreter, const BytecodeProgram& program) {
        observer_ = interpreter.observer;
        if (observer_ == nullptr) return;
        observer_->programBegins(program);
    }
    ~ObservedProgram() {
        if (observer_ != nullptr) observer_->programEnds();
    }
    ObservedProgram(const ObservedProgram&) = delete;
    ObservedProgram& operator=(const ObservedProgram&) = delete;

private:
    RunObserver* observer_ = nullptr;
};

/// A turn of a coroutine.
class ObservedTurn {
public:
    ObservedTurn(const DovrelScript& interpreter, const CoroutineState& coroutine) {
        observer_ = interpreter.observer;
        if (observer_ == nullptr) return;
        observer_->turnBegins(coroutine);
    }
    ~ObservedTurn() {
        if (observer_ != nullptr) observer_->turnEnds();
    }
    ObservedTurn(const ObservedTurn&) = delete;
    ObservedTurn& operator=(const ObservedTurn&) = delete;

private:
    RunObserver* observer_ = nullptr;
};
