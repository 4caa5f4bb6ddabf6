#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <list>
#include <string>

#include "net/event_loop.h"
#include "net/packet_tcp.h"
#include "tests/support/relay.h"

namespace {

class Receiver : public RXPacketTCP {
public:
    explicit Receiver(int fd) : RXPacketTCP(fd, IO_READ) { SetNonBlocking(fd); }
    void OnPacket(const uint8_t* data, int) override { benchmark::DoNotOptimize(data); }
    void OnDisconnect() override {}
};

// Frames of one payload size that come through a socket of this machine.
void SplitPackets(benchmark::State& state) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return state.SkipWithError("no sockets");
    const std::string frame = FrameOf(std::string(static_cast<size_t>(state.range(0)), 'x'));
    std::string frames;
    while (frames.size() < 64000) frames += frame;
    Receiver receiver(ends[1]);
    for (auto _ : state) {
        if (write(ends[0], frames.data(), frames.size()) < 0) state.SkipWithError("not sent");
        receiver.OnReadable();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(frames.size()));
    close(ends[0]);
}
BENCHMARK(SplitPackets)->Arg(13)->Arg(1000)->Arg(kMaxPayload);

// One writable descriptor among many that are watched for reading and never ready.
class Writer : public IO_Event {
public:
    explicit Writer(int fd) {
        m_fd = fd;
        SetFlags(IO_READ);
    }
    void OnWritable() override { SetFlags(IO_READ); }
};

void DispatchPass(benchmark::State& state) {
    EventLoop loop;
    std::list<Writer> writers;
    std::list<int> peers;
    for (int64_t i = 0; i < state.range(0); ++i) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) break;
        peers.push_back(ends[0]);
        loop.AddIO(&writers.emplace_back(ends[1]));
    }
    for (auto _ : state) {
        writers.back().SetFlags(IO_READ | IO_WRITE);
        benchmark::DoNotOptimize(loop.Dispatch(0));
    }
    for (const Writer& writer : writers) close(writer.m_fd);
    for (const int peer : peers) close(peer);
}
BENCHMARK(DispatchPass)->Arg(1)->Arg(500);

}  // namespace
