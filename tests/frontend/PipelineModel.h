// The pipeline sample by sample, with plain loops around the stages.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <vector>

#include "array/ArrayNoiseProcessing.h"
#include "array/OutputLevelControl.h"
#include "echo/DelayEstimator.h"
#include "echo/EchoCanceller.h"
#include "filters/BiquadSection.h"
#include "frontend/LoopbackSource.h"
#include "frontend/PipelineProbe.h"
#include "frontend/ResamplerBank.h"
#include "parameters/PipelineSettings.h"
#include "tests/support/PlayingSpeakers.h"

namespace vellumic {

inline LoopbackOpener openerOf(PlayingSpeakers& speakers) {
  return {.open = [&speakers] { return speakers.packets(); }, .onHelperThread = false};
}

class PipelineModel {
 public:
  PipelineModel(const PipelineSettings& settings, int microphones, PlayingSpeakers& speakers)
      : loopback(openerOf(speakers)),
        s(settings),
        mics(static_cast<std::size_t>(microphones)),
        input(microphones, settings.deviceRate, rate, 1),
        output(microphones, rate, settings.deviceRate, 1),
        inHand(mics),
        highPass(mics),
        taken(mics, std::vector<float>(1)),
        played(taken) {
    for (BiquadSection& section : highPass) section.set(3, 150.0F, 1.0F, 0.7F, 16000.0F);
    for (BiquadSection& section : bandTest) section.set(3, 800.0F, 1.0F, 0.7F, 16000.0F);
    loopback.setTargetRate(16000);
    loopback.start();
    lock();
  }

  // A fresh stream, as a lock begins it.
  void lock() {
    noise = std::make_unique<ArrayNoiseProcessing>(static_cast<int>(mics), 512);
    noise->applyParameters(s.beamformer, s.noiseEstimator, s.spectralGain);
    startOver();
    apply(s);
  }
  void skip() { skipped = true; }

  void apply(const PipelineSettings& settings) {
    const PipelineSettings before = s;
    s = settings;
    if (s.blockSize != before.blockSize || s.delaySearchBlocks != before.delaySearchBlocks)
      startOver();
    noise->apply(s.beamformer);
    noise->apply(s.spectralGain);
    if (s.noiseEstimator.gamma0 != before.noiseEstimator.gamma0)  // the one that scenes change
      noise->applyParameters(s.beamformer, s.noiseEstimator, s.spectralGain);
    noise->beamformerEnabled = s.beamformerEnabled;
    noise->postfilterEnabled = s.postfilterEnabled;
    references->apply(s.echo);
    for (EchoCanceller& canceller : cancellers) canceller.apply(s.echo);
    level.apply(s.level);
    if (!s.runs()) skip();
  }

  void run(float* frame) {
    if (!s.runs()) return;
    int arrived = 0;
    input.push({frame, 0, 1, static_cast<int>(mics)}, 1, {&arrived, 1});
    if (arrived > 0) takeSample();
    const bool fresh = ready && output.pop(played, 1);
    const bool mono = s.beamformerEnabled || s.postfilterEnabled;
    for (std::size_t m = 0; m < mics; ++m) {
      if (fresh) inHand[m] = played[m][0];
      if (mono) inHand[m] = inHand[0];
      frame[m] = ready ? inHand[m] : 0.0F;
    }
  }

  LoopbackSource loopback;
  PipelineProbe probe;

 private:
  static constexpr int rate = 16000;  // Hz, internal

  // The long-term state of the cancellers and the filters' memories outlive it.
  void startOver() {
    n = s.blockSize;
    at = 0;  // the count of hops goes on
    input = ResamplerBank(static_cast<int>(mics), s.deviceRate, rate, 1);
    output = ResamplerBank(static_cast<int>(mics), rate, s.deviceRate, 1);
    collected = finished = Eigen::ArrayXXf::Zero(n, static_cast<Eigen::Index>(mics));
    reference = Eigen::ArrayXXf::Zero(n, 2);
    popped.assign(2, std::vector<float>(static_cast<std::size_t>(n)));
    heard.assign(mics, {});
    references = std::make_unique<ReferenceSpectra>(s.blockSize);
    std::vector<EchoCanceller> before;
    before.swap(cancellers);
    for (std::size_t m = 0; m < mics; ++m) {
      cancellers.emplace_back(s.blockSize);
      if (!before.empty()) cancellers[m].carryOver(before[m]);
    }
    estimator.setWindowSize(s.delaySearchBlocks * s.blockSize);
    estimator.rebuild();
    loopback.setDelay(0);
    probe.microphoneDelay = 1024;
    probe.delayLocked = false;
    skipped = skipped || used;
    noteEchoState();
  }

  void takeSample() {
    input.pop(taken, 1);  // an overrun leaves the last one
    for (std::size_t m = 0; m < mics; ++m) {
      heard[m].push_back(taken[m][0]);
      const int past = static_cast<int>(heard[m].size()) - 1 - probe.microphoneDelay;
      float& sample = taken[m][0] = past < 0 ? 0.0F : heard[m][static_cast<std::size_t>(past)];
      highPass[m].process(sample);
      inHand[m] = collected(at, static_cast<Eigen::Index>(m)) = sample;
    }
    Eigen::ArrayXf row = finished.row(at);
    if (s.level.levelControlEnabled) level.process(finished(at, 0), row[0]);
    if (s.beamformerEnabled || s.postfilterEnabled || s.level.levelControlEnabled)
      row.setConstant(row[0]);
    int made = 0;
    output.push({row.data(), 0, 1, static_cast<int>(mics)}, 1, {&made, 1});
    ready = made > 0;
    if (++at == n) {
      at = slice = 0;
      processBlock();
      finished = collected;
    }
    if (at % 128 != 0) return;
    if (128 * ++slice > n) return;
    noise->process(finished.middleRows(128 * slice - 128, 128),
                   finished.col(0).segment(128 * slice - 128, 128));
    probe.signalActive = noise->beamformer.signalActive;
    probe.levelGain = level.levelStage.gain * level.limiterStage.gain;
  }

  void noteEchoState() {
    probe.loopbackDelay = loopback.delay();
    probe.streaming = loopback.streaming();
    probe.covarianceEnergy = cancellers[0].covarianceEnergy;
    probe.converged = cancellers[0].converged;
  }

  void processBlock() {
    ++probe.blocks;
    probe.microphoneEnergy = collected.col(0).square().mean();
    const bool passedOver = s.bandTest || !s.echoCancelEnabled || s.echoBypass;
    if (s.bandTest)
      for (int pass = 0; pass < std::min(s.bandTestPasses, 102400 / s.blockSize); ++pass)
        for (Eigen::Index j = 0; j < n; ++j)
          for (const Eigen::Index m : {0, 1})
            bandTest[static_cast<std::size_t>(m)].process(collected(j, m));
    if (!passedOver) cancelEcho();
    skipped = passedOver;
    probe.residualEnergy = collected.col(0).square().mean();
    probe.referenceEnergy = (reference.col(0) + reference.col(1)).square().mean();
    noteEchoState();
  }

  void cancelEcho() {
    used = true;
    bool afresh = skipped;
    if (skipped)
      loopback.discard();
    else
      afresh = loopback.drain();
    if (afresh) {
      probe.delayLocked = false;
      estimator.reset();
    }
    const bool fresh = loopback.popBlock(popped, s.blockSize);
    for (const Eigen::Index r : {0, 1})
      reference.col(r) =
          Eigen::Map<const Eigen::ArrayXf>(popped[static_cast<std::size_t>(r)].data(), n);
    if (!fresh) {
      if (s.referenceMonitor) collected.col(1) = 0.0F;
      return;
    }
    if (!probe.delayLocked)
      align();
    else if (cancellers[0].converged && cancellers[0].covarianceEnergy > 0.03F)
      probe.delayLocked = false;
    if (s.referenceMonitor) {
      collected.col(1) = reference.col(0);
      return;
    }
    const auto samples = [&](auto& matrix, Eigen::Index c) {
      return std::span(matrix.col(c).data(), static_cast<std::size_t>(n));
    };
    references->advance(samples(reference, 0), samples(reference, 1));
    for (std::size_t m = 0; m < mics; ++m) {
      const auto column = samples(collected, static_cast<Eigen::Index>(m));
      cancellers[m].process(*references, column, column);
    }
    ++probe.cancelledBlocks;
  }

  void align() {
    estimator.update(reference, collected);
    const int lag = probe.lastLag = estimator.committedLag;
    if (lag == 0) return;
    const int target = static_cast<int>(std::lround(0.1 * s.blockSize));
    if (std::abs(lag - target) > std::lround(0.3 * target)) {
      const int correction = lag - target;
      if (loopback.delay() + correction >= 0)
        loopback.setDelay(loopback.delay() + correction);
      else
        probe.microphoneDelay -= correction;
    }
    estimator.reset();
    probe.delayLocked = true;
  }

  PipelineSettings s;
  std::size_t mics;
  Eigen::Index n = 0, at = 0, slice = 0;
  bool skipped = false, used = false, ready = false;
  ResamplerBank input, output;
  std::unique_ptr<ArrayNoiseProcessing> noise;
  OutputLevelControl level;
  DelayEstimator estimator;
  std::unique_ptr<ReferenceSpectra> references;
  std::vector<EchoCanceller> cancellers;
  std::vector<float> inHand;
  std::vector<std::vector<float>> heard;
  std::vector<BiquadSection> highPass;
  std::array<BiquadSection, 2> bandTest;
  Eigen::ArrayXXf collected, finished, reference;
  ChannelArrays popped, taken, played;
};

}  // namespace vellumic
