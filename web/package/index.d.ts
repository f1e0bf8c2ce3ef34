/** Values by the keys of `parameters`, in their units; what isn't given has its default. */
export type Settings = { [key: string]: number };

export interface Parameter {
  readonly key: string;
  /** A listener's words, then the parameter's name where it says something else. */
  readonly label: string;
  /** The processor that it belongs to. */
  readonly group: string;
  readonly kind: "switch" | "value";
  readonly unit: string;
  /** A linear gain or level, which listeners read in decibels. */
  readonly isGain: boolean;
  readonly min: number;
  readonly max: number;
  readonly step: number;
  readonly default: number;
  /** The switch without which it does nothing. */
  readonly needs: string | null;
  /** Of the equalizer, 0 (lowest) to 9. */
  readonly band?: number;
  /** What a value does. */
  readonly law: string;
}

export interface Preset {
  readonly name: string;
  readonly description: string;
  readonly values: Settings;
}

export const parameters: readonly Parameter[];
export const presets: readonly Preset[];

export interface Levels {
  /** Of both channels over the last 50 ms, dB over full scale; -Infinity for silence. */
  readonly rms: number;
  /** Of the louder channel over the last 50 ms, dB over full scale (ITU-R BS.1770). */
  readonly truePeak: number;
  /** Of the last 3 s, LUFS (EBU R 128). */
  readonly shortTerm: number;
}

export interface Options {
  preset?: string;
  /** Over those of the preset. */
  settings?: Settings;
}

/**
 * One input, stereo; a mono input is both channels. Output 0 is the result, output 1 the input as
 * late as the result, for before and after in step.
 */
export class OrvaneNode extends AudioWorkletNode {
  /**
   * A node that runs. RangeError: the context's rate is outside 32000 to 48000 Hz, or there is no
   * such preset or setting.
   */
  static create(context: BaseAudioContext, options?: Options): Promise<OrvaneNode>;
  /**
   * One k-rate AudioParam for every key of `parameters`, and "enabled". A value acts from the next
   * block of 1024 frames on, in steps that aren't heard as such.
   */
  readonly parameters: AudioParamMap;
  /** Seconds by which both outputs lie behind the input. Switches change it. */
  readonly latency: number;
  /** Off: output 0 is output 1, in step. */
  enabled: boolean;
  onlatency: ((seconds: number) => void) | null;
  /** Every 50 ms. */
  onmeter: ((levels: { readonly before: Levels; readonly after: Levels }) => void) | null;
  /** Now, without a click. */
  set(key: string, value: number): void;
  /** All of them. */
  apply(settings: Settings): void;
  /** Ends the processor. */
  close(): void;
}

export interface Piece {
  /** 32000 to 48000 Hz. */
  readonly rate: number;
  /** One or two, of equal length. */
  readonly channels: readonly Float32Array[];
}
export interface Loudness {
  readonly before: number;
  readonly after: number;
}
/**
 * Integrated loudness of a whole piece, LUFS. A newer call ends the one before, whose promise then
 * never settles.
 */
export function measure(piece: Piece, settings: Settings,
                        onProgress?: (loudness: Loudness) => void): Promise<Loudness>;
/** The result as a WAV file of 16 bits, as long as the piece and in step with it. */
export function renderWav(piece: Piece, settings: Settings): Promise<Blob>;
/**
 * In place: 16-bit samples that decodeAudioData scaled by 32767 above zero are multiples of 1/32768
 * again, so that what is rendered is what the effect makes of the file, to the bit.
 */
export function fromDecoded(samples: Float32Array): Float32Array;
