#pragma once
// An update agent whose answers are scripted look by look.
#include <deque>

#include "platform/UpdateAgent.h"

namespace fakes {

class FakeUpdateAgent : public platform::UpdateAgent {
public:
    // Answers handed out in order; once they run out, every look gets
    // `answer`.
    std::deque<Answer> script;
    Answer answer;
    int looks = 0;

    static Answer Busy() { return Answer{Failure::None, S_OK, true}; }
    static Answer Idle() { return Answer{Failure::None, S_OK, false}; }
    static Answer Failing(Failure step, HRESULT error) { return Answer{step, error, false}; }

    Answer QueryInstallerBusy() override
    {
        ++looks;
        if (script.empty())
            return answer;
        Answer next = script.front();
        script.pop_front();
        return next;
    }
};

}  // namespace fakes
