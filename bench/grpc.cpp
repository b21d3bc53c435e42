// SPDX-License-Identifier: MIT
//
// add(2, 40) by gRPC over a stream socket of the UNIX domain, between this process and a server of its own.
#include <sys/prctl.h>

#include <chrono>
#include <csignal>
#include <memory>

#include <adder.grpc.pb.h> // of adder.proto
#include <grpcpp/grpcpp.h>

#include "burst_process.h"

namespace {

class AdderService final : public bench::Adder::Service {
    grpc::Status Add(grpc::ServerContext *, const bench::Terms *terms, bench::Sum *sum) override
    {
        sum->set_sum(terms->a() + terms->b());
        return grpc::Status::OK;
    }
};

[[noreturn]] void serve_calls(const std::string &address)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    AdderService service;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(address, grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (server == nullptr) _exit(1);
    server->Wait();
    _exit(0);
}

} // namespace

// The server is forked before the library has threads here.
int main()
{
    const std::string address = "unix-abstract:kahost-bench-" + std::to_string(getpid());
    if (fork() == 0) serve_calls(address);
    const auto channel = grpc::CreateChannel(address, grpc::InsecureChannelCredentials());
    if (!channel->WaitForConnected(std::chrono::system_clock::now() + std::chrono::seconds(10))) return 1;
    const auto adder = bench::Adder::NewStub(channel);
    bench::Terms terms;
    terms.set_a(2);
    terms.set_b(40);
    return bench::serve({bench::burst_of([&](long) {
        bench::Sum sum;
        grpc::ClientContext context;
        if (!adder->Add(&context, terms, &sum).ok() || sum.sum() != 42) std::exit(1);
    })});
}
