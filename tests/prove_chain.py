#!/usr/bin/python3
"""Proves that processors keep to their rings and histories, for any number of frames.

tests/prove_chain.cpp and tests/prove_calls.cpp have the invariants and the steps. Each step is executed
with unknown inputs in any state that the invariant allows, its loops by induction. z3 is asked for an
input with which an access leaves its object, or with which the invariant doesn't hold any more. Then a
size or an invariant is spoilt in a copy of the sources, and each time such an input must be found.

usage: prove_chain.py [STEP]    for the steps whose names begin with STEP, without the spoilt copies
"""
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts"))
sys.dont_write_bytecode = True
import llvm_proofs
from llvm_loops import Inductive
from llvm_memory import fresh
from llvm_proofs import ROOT

SOURCE, CALLS = "tests/prove_chain.cpp", "tests/prove_calls.cpp"
ASSUMPTIONS = """assumed:
- The code is what clang 14 makes at -O1 for x86-64, in the form for processors without vectors. Other
  compilers, levels and forms get the same sources.
- Objects begin as the invariants of tests/prove_chain.cpp say: construction, reset and settings are not
  executed. A step that another step calls keeps what is proved of it.
- In a call of the chain, the processors keep to the frames that they are told. Where they aren't open, the
  chunks are proved by themselves.
- Numbers that are no integers may be anything, so no access depends on them.
- The blocks of one call don't overlap.
open:
- the limiters' gains for two channels of integers, and of floats beside the contour's filter; the window for
  two channels of integers; the measurement of the playback gain for two: the solver takes too long
- the chunks of the playback gain for two channels, and the transform's stages: too little is guessed about
  their loops, so the solver begins at states that no turn reaches
- the enhancer's blocks: how they pass from one buffer through the filters and delays to the other"""
# These are proved only if they are named, for their time.
LONG = "equalizer_begin_2", "gains_Q24_1_Alone", "window_Plain_2", "window_Q24_1"
STEPS = {  # what is proved, and the functions in whose place the steps' stand-ins are called
    "window": r"^_ZN11LimiterCoreI\d+(Plain|Q24)LimitingLj(\d)EE10MakeWindowEv",
    "gains": r"^_ZN11LimiterCoreI\d+(Plain|Q24)LimitingLj(\d)EE9MakeGainsI\d(Alone|Beside).*",
    "reserve": "^_ZN14WaveBuffer_R327ReserveEj",
    "alone": "^_ZN12PlaybackGain7ProcessE.*",
    "measuring": "^_ZN12PlaybackGain5BeginE.*",
    "levelling": "^_ZN12PlaybackGain12ProcessChunkI5AloneE.*",
    "sums": "^_ZN12FIREqualizerIffE5BeginE.*",
    "room": "^_ZN11OrvaneSoundIffE7ReserveE.*",
    "input": "^_ZN11OrvaneSoundIffE5InputE.*",
    "bands": "^_ZN11OrvaneSoundIffE12ProcessBandsE.*",
    "resonance": "^_ZN11OrvaneSoundIffE5BeginE.*",
    "addition": "^_ZN11OrvaneSoundIffE6FinishE.*",
    "amplify": "^_Z7AmplifyPfmf",
    "chunk": r"^_ZN11LimiterCoreI\d+(Plain|Q24)LimitingLj(\d)EE19ProcessChunkToShortI\d(Alone|Beside).*",
}
# These write nothing that matters: a buffer is emptied, frames are dropped, and sums are finished elsewhere.
HARMLESS = "^_ZN(14WaveBuffer_R325ResetE|11OrvaneSoundIffE4DropE|12FIREqualizerIffE6FinishE).*"
UNROLLED = "6bitrv2",
CONTROLS = {  # what is spoilt: file, text, replacement, the proof that must fail
    "a ring without the copy of its first frame":
        ("effects/limiter_core.h", "ring[(kWindow + 1) * kChannels]", "ring[kWindow * kChannels]",
         "chunk_Plain_1_Alone"),
    "a chunk may be a frame longer":
        (SOURCE, "proof_assume(count <= core->Room());", "proof_assume(count <= core->Room() + 1);",
         "chunk_Plain_1_Alone"),
    "an invariant of the ring is weakened":
        (SOURCE, "core.next < Core::kWindow", "core.next <= Core::kWindow", "chunk_Plain_1_Alone"),
    "a history that is moved a frame too late":
        ("effects/fir_equalizer.cpp", "> State::kReach + State::kMove)",
         "> State::kReach + State::kMove + 1)", "equalizer_begin_1"),
    "a buffer that grows a sample too late":
        ("dsp/wave_buffer.cpp", "needed <= capacity", "needed <= capacity + 1", "buffer_1"),
    "a delay that moves a pair too far":
        ("dsp/planar_delay.h", "all.im + block,", "all.im + block + 1,", "delay"),
    "a chunk that passes the end of the call":
        ("unit/chain.cpp", "std::min(left, playbackGain->Room())", "playbackGain->Room()", "call_1"),
    "a chunk that the limiters have no room for":
        ("unit/chain.cpp", "limiters->Room(before)", "limiters->Room(0)", "call_1"),
    "a chunk of the contour that may be a frame longer":
        (SOURCE, "frames <= kChunkFrames", "frames <= kChunkFrames + 1", "contour_1"),
}


def compiled(folder, step):
    file = CALLS if step.startswith("call_") else SOURCE
    source = next(path for path in (pathlib.Path(folder) / file, ROOT / file) if path.exists())
    text = llvm_proofs.compiled(folder, source.read_text(), "-DORVANE_LANES=1", "-fno-access-control",
                                "--target=x86_64-linux-gnu")
    return llvm_proofs.reachable(text, "prove_|instead_")


def prove(code, step):
    """Proves one step; the stand-ins of all others are taken for granted."""
    def called(kind):
        return f"instead_{kind}" + "".join(rf"_\{n + 1}" for n in range(re.compile(STEPS[kind]).groups))
    kind = re.fullmatch(r"(\w+?)(_(Plain|Q24)_\d(_\w+)?|_\d)?", step)[1]
    others = [(part, called(k)) for k, part in STEPS.items() if k != kind and f"@instead_{k}" in code]
    program = Inductive(code, [*others, (HARMLESS, "harmless")], UNROLLED)
    parameters = re.search(rf"^define [^\n]*@prove_{step}\((.*?)\) ", code, re.M)[1]
    arguments = [fresh(int(bits)) for bits in re.findall(r"\bi(\d+) ", parameters)]
    for _ in program.call(program.start(), f"prove_{step}", arguments):
        pass
    return program, f"{program.invariants} statements about loops"


print(ASSUMPTIONS)
chosen = sys.argv[1] if len(sys.argv) > 1 else ""
steps = {step: code for code in (compiled(ROOT, "call_"), compiled(ROOT, ""))
         for step in re.findall(rf"^define [^\n]*@prove_((?:{chosen})\w*)\(", code, re.M)}
held = []
for step in sorted(steps) or sys.exit("prove_chain: there is no such step"):
    if step in LONG and not chosen:
        print(f"{step}: takes long, so it is proved only if it is named")
    else:
        held.append(llvm_proofs.holds(step, lambda: prove(steps[step], step)))
for name, (*change, step) in CONTROLS.items() if not chosen else ():
    held.append(llvm_proofs.notices(name, *change, lambda folder: prove(compiled(folder, step), step)))
sys.exit(0 if all(held) else 1)
