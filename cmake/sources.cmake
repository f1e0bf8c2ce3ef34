# What every build of the library has in common; platform/ has a source per kind of machine.
set(ORVANE_SOURCES
  dsp/band_filters.cpp
  dsp/band_spliter.cpp
  dsp/biquad.cpp
  dsp/biquad_fp.cpp
  dsp/fft_r24.cpp
  dsp/fir_window.cpp
  dsp/planar_fft.cpp
  dsp/softfloat/band_convolver.cpp
  dsp/softfloat/contour_mix.cpp
  dsp/softfloat/equalizer_core.cpp
  dsp/wave_buffer.cpp
  effects/cross_fader.cpp
  effects/fir_equalizer.cpp
  effects/limiter.cpp
  effects/limiter_core.cpp
  effects/limiter_fp.cpp
  effects/loudness.cpp
  effects/orvane_sound.cpp
  effects/orvane_sound_block.cpp
  effects/playback_gain.cpp
  effects/steady_gains.cpp
  host/effect.cpp
  host/entry_points.cpp
  host/reply.cpp
  unit/chain.cpp
  unit/process_unit_orvane.cpp
)

set(ORVANE_OPTIONS
  -fvisibility=hidden  # but for what platform/export.h marks
  -fno-exceptions -fno-rtti -fno-unwind-tables -fno-asynchronous-unwind-tables
  -ffunction-sections -fdata-sections
  # The run-time library computes every design, whatever a compiler knows of its arguments.
  -fno-builtin-sin -fno-builtin-cos -fno-builtin-exp -fno-builtin-pow -fno-builtin-sinf
  -fno-builtin-cosf -fno-builtin-powf -fno-builtin-logf)

# Of client/, what runs the library without a file system.
set(ORVANE_CLIENT_SOURCES delay.cpp instance.cpp piece_stream.cpp settings.cpp stream.cpp tone.cpp)
