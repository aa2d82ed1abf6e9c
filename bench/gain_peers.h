#pragma once

#include <memory>
#include <string>

struct AVFilterContext;
struct AVFilterGraph;
struct AVFrame;

/// One libavfilter filter between a source and a sink of float stereo frames at 48000 Hz.
class FilterPeer {
  public:
    /// `filter` by its name; with `hasSideChain` a second source feeds its second input.
    FilterPeer(const std::string& filter, const std::string& options, bool hasSideChain,
               int frames);
    ~FilterPeer();
    FilterPeer(const FilterPeer&) = delete;
    FilterPeer& operator=(const FilterPeer&) = delete;

    /// Pushes one frame and takes what comes out.
    void process();

  private:
    struct FreeGraph {
        void operator()(AVFilterGraph* graph) const;
    };
    struct FreeFrame {
        void operator()(AVFrame* frame) const;
    };
    AVFilterContext* make(const std::string& filter, const std::string& name,
                          const std::string& options);

    std::unique_ptr<AVFilterGraph, FreeGraph> graph_;
    std::unique_ptr<AVFrame, FreeFrame> in_;
    std::unique_ptr<AVFrame, FreeFrame> out_;
    AVFilterContext* source_ = nullptr;
    AVFilterContext* sideChain_ = nullptr;
    AVFilterContext* sink_ = nullptr;
    long long time_ = 0;
};
