#pragma once
// The "Info" page: who made the tool and where its documentation is. Shown to
// the user and saved with the flow; the tool never reads these inputs.
class Operator;

class info_interface {
public:
    void CreateInfoPage(Operator* op);
};
