// The reply block of a command: memory that the caller offers, of a size that only he knows.
//
// Nothing is written beyond what is offered; a reply that doesn't fit is left out, and the reply
// size, if the caller gave one, becomes 0. The blocks may lie at any address.
//
// Where more is offered than a reply takes, the reply size becomes the reply's: the platform's
// server sends that many bytes of its block back to the application, and never cleared the block.
#pragma once
#include <cstdint>

class Reply {
public:
    // Either pointer may be null. Without a size, `data` offers the 4 bytes of a status.
    Reply(uint32_t* replySize, void* replyData);

    // Whether WriteParameter, which doesn't ask, may be called.
    bool FitsParameter() const;

    void WriteStatus(int32_t status);
    // Parameter reply of 20 bytes: status 0, value size 4, the value.
    void WriteParameter(int32_t value);
    // Parameter reply of 12 bytes: status -22, value size 0.
    void WriteNoParameter();

private:
    void StoreSize(uint32_t bytes);
    void StoreWord(uint32_t offset, int32_t value);

    // As bytes: a compiler may take a typed pointer for an aligned one.
    unsigned char* size;
    unsigned char* data;
    uint32_t offered;  // bytes
};
