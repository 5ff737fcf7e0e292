// The page of the live view. Pictures are pulled, one after the other, so that a slow link shows fewer
// of them instead of older ones; what else there is to know comes with the state, which answers
// whenever something has changed.
'use strict';

const $ = (id) => document.getElementById(id);
const sleep = (ms) => new Promise((done) => setTimeout(done, ms));
const clamp = (value, min, max) => Math.min(Math.max(value, min), max);

// ---------------------------------------------------------------------------------------- figures

const kNone = '–';
const fixed = (value, digits, unit = '') =>
  value === null || value === undefined ? kNone : value.toFixed(digits) + unit;

function asBytes(bytes) {
  if (bytes === null || bytes === undefined) return kNone;
  const units = ['B', 'kB', 'MB', 'GB', 'TB'];
  let i = 0;
  while (bytes >= 1000 && i < units.length - 1) { bytes /= 1000; i += 1; }
  return `${bytes.toFixed(bytes < 10 && i > 0 ? 1 : 0)} ${units[i]}`;
}

// Times are shown and read as on the command line: 250us, 20ms, 1.5s, 2min.
function asTime(seconds) {
  const round = (value) => String(Number(value.toPrecision(4)));
  if (seconds < 1e-3) return `${round(seconds * 1e6)}us`;
  if (seconds < 1) return `${round(seconds * 1e3)}ms`;
  if (seconds >= 120 && seconds % 60 === 0) return `${round(seconds / 60)}min`;
  return `${round(seconds)}s`;
}

function parseTime(text) {
  const match = /^\s*([0-9]*\.?[0-9]+)\s*(us|ms|s|min|h)?\s*$/.exec(text);
  if (!match) return null;
  return Number(match[1]) * { us: 1e-6, ms: 1e-3, s: 1, min: 60, h: 3600 }[match[2] || 's'];
}

// ------------------------------------------------------------------------------------- the server

const link = { reached: true, present: true, message: '' };

function showAlarm() {
  const alarm = $('alarm');
  alarm.classList.toggle('minor', link.reached && link.present);
  if (!link.reached) alarm.textContent = 'The server does not answer. Trying again …';
  else if (!link.present) alarm.textContent = 'The camera is gone. Waiting for it …';
  else alarm.textContent = link.message;
  alarm.hidden = !alarm.textContent;
  document.body.classList.toggle('stale', !link.reached || !link.present);
}

let messageEnds = 0;
function tell(message) {
  link.message = message;
  showAlarm();
  clearTimeout(messageEnds);
  messageEnds = setTimeout(() => { link.message = ''; showAlarm(); }, 6000);
}

function reached(isIt) {
  if (link.reached === isIt) return;
  link.reached = isIt;
  showAlarm();
}

// Changes something. What the server has against it is shown in its own words.
async function put(path, body = {}) {
  try {
    const response = await fetch(path, {
      method: 'PUT',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify(body),
      signal: AbortSignal.timeout(20000),
    });
    reached(true);
    if (response.ok) return true;
    const answer = await response.json().catch(() => ({}));
    tell(answer.error || `The server refused: ${response.status}.`);
  } catch {
    reached(false);
  }
  return false;
}

// --------------------------------------------------------------------------------------- pictures

// Shows one picture after the other. `query` tells which; `show` gets each with its facts.
class Feed {
  constructor(query, show) {
    this.query = query;
    this.show = show;
    this.after = 0;
    this.pending = null;
    this.awake = null;
    this.run();
  }

  // Asks anew, for the present frame again.
  refresh() {
    this.after = Math.max(0, this.after - 1);
    if (this.pending) this.pending.abort();
    if (this.awake) this.awake();
  }

  async run() {
    for (;;) {
      const query = document.hidden ? null : this.query();
      if (query === null) {
        await new Promise((done) => { this.awake = done; });
        this.awake = null;
        continue;
      }
      this.pending = new AbortController();
      try {
        const { signal } = this.pending;
        const response = await fetch(`/api/frame?after=${this.after}&${query}`, { signal });
        reached(true);
        if (response.status !== 200) {
          await sleep(response.status === 204 ? 0 : 1000);
          continue;
        }
        const facts = JSON.parse(response.headers.get('Vsccam-Frame'));
        const image = await createImageBitmap(await response.blob());
        if (signal.aborted) continue;
        this.after = facts.sequence;
        this.show(image, facts);
        image.close();
      } catch (error) {
        if (error.name === 'AbortError') continue;
        reached(false);
        this.after = 0; // another server counts from the beginning
        await sleep(1000);
      }
    }
  }
}

const view = {
  facts: null,
  stretch: 'auto',
  pixels: false,
  cross: false,
  times: [], // when the last pictures were shown
};

// Half of the largest sensors is more than any screen has.
function size() {
  if (view.pixels) return 'full';
  return view.facts && view.facts.width > 4096 ? 'quarter' : 'half';
}

function showPicture(image, facts) {
  const canvas = $('picture');
  if (canvas.width !== image.width || canvas.height !== image.height) {
    canvas.width = image.width;
    canvas.height = image.height;
  }
  canvas.getContext('2d').drawImage(image, 0, 0);
  view.facts = facts;
  $('waiting').hidden = true;
  showCaption(facts);
  showLevels(facts);
  placeLoupe(facts);
  drawMarks();
}

function showCaption(facts) {
  const now = performance.now();
  view.times = view.times.filter((time) => now - time < 2000);
  view.times.push(now);
  $('caption').textContent = `${facts.sequence} · ${facts.utc.slice(11, 21)} UTC · ` +
    `${asTime(facts.exposure)} · gain ${facts.gain} · ${facts.width} × ${facts.height}`;
  $('seen').textContent = `${(view.times.length / 2).toFixed(1)} /s`;
}

// Where the picture lies in its canvas: it keeps its shape.
function layout() {
  const canvas = $('picture');
  const box = canvas.getBoundingClientRect();
  const scale = Math.min(box.width / canvas.width, box.height / canvas.height);
  return {
    scale,
    left: (box.width - canvas.width * scale) / 2,
    top: (box.height - canvas.height * scale) / 2,
    box,
  };
}

// A drawing of the size that it has on this screen, and in its units.
function drawing(canvas) {
  const box = canvas.getBoundingClientRect();
  const ratio = window.devicePixelRatio || 1;
  const width = Math.round(box.width * ratio);
  const height = Math.round(box.height * ratio);
  if (canvas.width !== width || canvas.height !== height) {
    canvas.width = width;
    canvas.height = height;
  }
  const context = canvas.getContext('2d');
  context.setTransform(ratio, 0, 0, ratio, 0, 0);
  context.clearRect(0, 0, box.width, box.height);
  return { context, width: box.width, height: box.height };
}

let colours = {};
function readColours() {
  const style = getComputedStyle(document.documentElement);
  for (const name of ['text', 'quiet', 'line', 'accent', 'warning', 'red', 'green', 'blue'])
    colours[name] = style.getPropertyValue(`--${name}`).trim();
}

function drawMarks() {
  const marks = $('marks');
  if (view.pixels) { marks.hidden = true; return; }
  marks.hidden = false;
  const { context, width, height } = drawing(marks);
  const { scale, left, top } = layout();
  const { facts } = view;
  if (!facts) return;
  const perPixel = scale / facts.reduction;
  context.lineWidth = 1;
  if (loupe.window && isShown('focus')) {
    const [x, y, w, h] = loupe.window;
    context.strokeStyle = colours.accent;
    context.strokeRect(left + x * perPixel, top + y * perPixel, w * perPixel, h * perPixel);
  }
  if (view.cross) {
    context.strokeStyle = colours.warning;
    context.beginPath();
    context.moveTo(width / 2, 0);
    context.lineTo(width / 2, height);
    context.moveTo(0, height / 2);
    context.lineTo(width, height / 2);
    context.stroke();
    context.beginPath();
    context.arc(width / 2, height / 2, Math.min(width, height) / 8, 0, 7);
    context.stroke();
  }
}

// ------------------------------------------------------------------------- histogram and stretch

// The axis is the root of the level: noise is equally wide everywhere, and a dark sky has room.
const toAxis = (level) => Math.sqrt(level);
const fromAxis = (place) => place * place;
const transfer = (midtone, value) =>
  value <= 0 ? 0 : value >= 1 ? 1
    : ((midtone - 1) * value) / ((2 * midtone - 1) * value - midtone);

const sliders = ['black', 'grey', 'white'].map($);

function showLevels(facts) {
  const { stretch, levels } = facts;
  if (!sliders.includes(document.activeElement) || view.stretch === 'auto') {
    const grey = stretch.black + stretch.midtone * (stretch.white - stretch.black);
    [stretch.black, grey, stretch.white].forEach((level, i) => {
      sliders[i].value = toAxis(level);
    });
  }
  const share = (level) => `${((100 * level) / levels.fullScale).toPrecision(2)} %`;
  $('levels').textContent =
    `sky ${Math.round(levels.sky)} (${share(levels.sky)}) ± ${levels.noise} · ` +
    `max ${Math.round(levels.max)}`;
  drawHistogram(facts);
}

function drawHistogram({ histogram, stretch }) {
  const { context, width, height } = drawing($('histogram'));
  const highest = Math.log1p(Math.max(...histogram.flat()));
  const fills = histogram.length === 1 ? ['quiet'] : ['red', 'green', 'blue'];
  context.globalCompositeOperation = 'lighter';
  histogram.forEach((bins, channel) => {
    context.fillStyle = colours[fills[channel]];
    context.globalAlpha = histogram.length === 1 ? 0.9 : 0.5;
    const step = width / bins.length;
    bins.forEach((count, i) => {
      const high = (height * Math.log1p(count)) / highest;
      context.fillRect(i * step, height - high, step, high);
    });
  });
  context.globalCompositeOperation = 'source-over';
  context.globalAlpha = 1;
  context.strokeStyle = colours.accent;
  context.lineWidth = 1.5;
  context.beginPath();
  for (let x = 0; x <= width; x += 2) {
    const level = (fromAxis(x / width) - stretch.black) / (stretch.white - stretch.black);
    context.lineTo(x, height - 1 - (height - 2) * transfer(stretch.midtone, level));
  }
  context.stroke();
}

function setStretch(stretch) {
  view.stretch = stretch;
  $('auto').setAttribute('aria-pressed', stretch === 'auto');
  $('linear').setAttribute('aria-pressed', stretch === 'linear');
  main.refresh();
  loupeFeed.refresh();
}

function slide(moved) {
  const kLeast = 0.004; // between two of the three
  let [black, grey, white] = sliders.map((slider) => Number(slider.value));
  if (moved === 'black') black = Math.min(black, white - 2 * kLeast);
  else white = Math.max(white, black + 2 * kLeast);
  grey = clamp(grey, black + kLeast, white - kLeast);
  [black, grey, white].forEach((place, i) => { sliders[i].value = place; });
  const [low, middle, high] = [black, grey, white].map(fromAxis);
  const midtone = clamp((middle - low) / (high - low), 1e-4, 1 - 1e-4);
  setStretch([low, midtone, high].map((value) => value.toFixed(6)).join(','));
}

// ------------------------------------------------------------------------------ loupe and focus

const loupe = {
  place: null, // nothing: none was ever shown
  follows: true,
  misses: 0, // pictures without a star, in turn
  window: null,
  points: [], // of the curve
};

const kCurvePoints = 600;
const panels = $('panels');
const isShown = (name) => getComputedStyle(document.querySelector(`.panel[data-tab="${name}"]`))
  .display !== 'none';

// The loupe follows a star, and looks for the brightest one again only when it is lost: of two that
// are about as bright, the air makes now one and now the other the brightest.
function placeLoupe(facts) {
  const middle = { x: facts.width >> 1, y: facts.height >> 1 };
  if (!loupe.place) moveLoupe(facts.focus || middle);
  else if (loupe.follows && facts.focus && loupe.misses > 3) moveLoupe(facts.focus);
}

function followStar(star) {
  loupe.misses = star ? 0 : loupe.misses + 1;
  if (star && loupe.follows && Math.hypot(loupe.place.x - star.x, loupe.place.y - star.y) > 48)
    moveLoupe(star);
}

function moveLoupe(place, follows = loupe.follows) {
  const { facts } = view;
  loupe.place = {
    x: Math.round(clamp(place.x, 0, facts.width - 1)),
    y: Math.round(clamp(place.y, 0, facts.height - 1)),
  };
  loupe.follows = follows;
  $('follow').setAttribute('aria-pressed', follows);
  loupeFeed.refresh();
}

function showLoupe(image, facts) {
  const canvas = $('loupe');
  if (canvas.width !== image.width || canvas.height !== image.height) {
    canvas.width = image.width;
    canvas.height = image.height;
  }
  canvas.getContext('2d').drawImage(image, 0, 0);
  loupe.window = facts.window;
  const { focus, levels } = facts;
  $('hfd').textContent = focus ? fixed(focus.hfd, 2) : kNone;
  $('peak').textContent = focus ? `${Math.round((100 * focus.peak) / levels.fullScale)} %` : kNone;
  $('place').textContent = focus ? `${focus.x}, ${focus.y}` : 'none';
  if (focus) {
    loupe.points.push({ at: Date.now(), hfd: focus.hfd });
    if (loupe.points.length > kCurvePoints) loupe.points.shift();
  }
  drawCurve();
  followStar(focus);
}

function drawCurve() {
  const { points } = loupe;
  const { context, width, height } = drawing($('curve'));
  if (!points.length) { $('best').textContent = kNone; return; }
  const best = Math.min(...points.map((point) => point.hfd));
  $('best').textContent = fixed(best, 2);
  drawGraph(context, width, height, [
    { colour: colours.accent, points: points.map(({ at, hfd }) => [at, hfd]), digits: 1, least: 1 },
  ], [{ colour: colours.quiet, value: best }]);
}

// Lines over time, all on one axis, which is labelled at both ends.
function drawGraph(context, width, height, lines, marks = []) {
  const all = lines.flatMap((line) => line.points);
  if (!all.length) return;
  const [begin, end] = [all[0][0], Math.max(...all.map((point) => point[0]))];
  const values = all.map((point) => point[1]).concat(marks.map((mark) => mark.value));
  const { least, digits } = lines[0];
  let [low, high] = [Math.min(...values), Math.max(...values)];
  const room = Math.max(0, least - (high - low)) / 2 + (high - low) * 0.08;
  low -= room;
  high += room;
  const left = 38;
  const toX = (at) => left + ((width - left - 8) * (at - begin)) / Math.max(end - begin, 1000);
  const toY = (value) => 8 + ((height - 24) * (high - value)) / (high - low);
  context.font = '11px system-ui, sans-serif';
  context.fillStyle = colours.quiet;
  context.textAlign = 'right';
  context.fillText(high.toFixed(digits), left - 6, 16);
  context.fillText(low.toFixed(digits), left - 6, height - 18);
  const seconds = Math.round((end - begin) / 1000);
  const span = seconds < 120 ? `${seconds} s` : `${Math.round(seconds / 60)} min`;
  context.fillText(`last ${span}`, width - 8, height - 4);
  for (const { colour, value } of marks) {
    context.strokeStyle = colour;
    context.setLineDash([3, 4]);
    context.lineWidth = 1;
    context.beginPath();
    context.moveTo(left, toY(value));
    context.lineTo(width - 8, toY(value));
    context.stroke();
    context.setLineDash([]);
  }
  for (const { colour, points } of lines) {
    context.strokeStyle = colour;
    context.lineWidth = 1.5;
    context.lineJoin = 'round';
    context.beginPath();
    for (const [at, value] of points) context.lineTo(toX(at), toY(value));
    context.stroke();
    if (points.length) {
      const [at, value] = points[points.length - 1];
      context.fillStyle = colour;
      context.beginPath();
      context.arc(toX(at), toY(value), 2.5, 0, 7);
      context.fill();
    }
  }
}

// ----------------------------------------------------------------------------------- the camera

let state = null; // of the camera, as the server told last
let info = null; // what the model can do
let lastEvent = 0;

const kModes = {
  video: 'live', exposing: 'exposing', waiting: 'between exposures', idle: 'idle', lost: 'lost',
};

async function get(path) {
  const response = await fetch(path, { signal: AbortSignal.timeout(10000) });
  if (!response.ok) throw new Error(response.status);
  return response.json();
}

async function watchState() {
  let revision = 0;
  for (;;) {
    try {
      if (!info) showInfo(await get('/api/info'));
      state = await get(`/api/state?after=${revision}&events=${lastEvent}`);
      reached(true);
      revision = state.revision;
      showState();
      await sleep(100); // ten changes a second are enough to see
    } catch {
      reached(false);
      info = null; // it may be another server, with another camera
      revision = 0;
      lastEvent = 0;
      await sleep(1000);
    }
  }
}

// What is not part of the state is asked for while somebody looks at it.
async function watchPanel(name, everyMs, path, show) {
  for (;;) {
    try {
      if (link.reached && !document.hidden && isShown(name)) show(await get(path));
    } catch {
      // The state tells that the server is gone.
    }
    await sleep(everyMs);
  }
}

function showInfo(told) {
  info = told;
  $('model').textContent = info.model;
  document.title = `${info.model} – vsccam`;
  options($('type'), info.formats);
  options($('bin'), info.bins);
  $('uncooled').hidden = info.cooled;
  $('cooler').hidden = !info.cooled;
}

function showState() {
  link.present = state.present;
  showAlarm();
  showTop();
  showFormat();
  showCapture();
  showRecording();
  showCooling();
  showGuide();
  showLog();
}

function showTop() {
  const { statistics } = state;
  $('simulated').hidden = !state.simulated;
  $('mode').textContent = kModes[state.mode] || state.mode;
  $('rate').textContent = fixed(statistics.frames_per_s, 1);
  $('dropped').textContent = statistics.dropped;
  $('drops').classList.toggle('losing', statistics.dropped > 0);
  $('temperature').textContent = fixed(state.temperature_c, 1, ' °C');
  $('disk').textContent = asBytes(state.disk_free);
}

// Writes a value into a field, unless somebody is writing there.
function fill(field, value) {
  if (document.activeElement !== field) field.value = value;
}

function options(select, values) {
  select.replaceChildren(...values.map((value) => new Option(value, value)));
}

function showFormat() {
  const { type, bin, in_force: region } = state.format;
  fill($('type'), type);
  fill($('bin'), bin);
  fill($('region'), `${region.width}x${region.height}+${region.x}+${region.y}`);
  $('flip_x').setAttribute('aria-pressed', state.format.flip_x);
  $('flip_y').setAttribute('aria-pressed', state.format.flip_y);
  $('video').setAttribute('aria-pressed', state.mode === 'video');
}

function parseRegion(text) {
  const match = /^\s*(\d+)\s*[x×]\s*(\d+)\s*\+\s*(\d+)\s*\+\s*(\d+)\s*$/.exec(text);
  if (!match) return undefined;
  const [width, height, x, y] = match.slice(1).map(Number);
  return { width, height, x, y };
}

let exposingSince = null;
function showCapture() {
  const { capture } = state;
  const running = Boolean(capture && capture.running);
  $('take').disabled = running;
  $('stop').disabled = !running;
  exposingSince = running ? Date.now() - 1000 * (capture.elapsed_s || 0) : null;
  showProgress();
}

function showProgress() {
  const capture = state && state.capture;
  if (!capture) return;
  const { taken, count, exposure_s: exposure } = capture;
  const file = capture.last_file ? ` · ${capture.last_file}` : '';
  const again = capture.retaken ? ` · ${capture.retaken} taken again` : '';
  if (exposingSince === null) {
    $('exposing').value = taken / count;
    $('taking').textContent = capture.failure || `${taken} of ${count} taken${again}${file}`;
    return;
  }
  const elapsed = clamp((Date.now() - exposingSince) / 1000, 0, exposure);
  $('exposing').value = (taken + elapsed / exposure) / count;
  $('taking').textContent = state.mode === 'exposing'
    ? `${taken + 1} of ${count} · ${(exposure - elapsed).toFixed(1)} s left${again}${file}`
    : `${taken} of ${count} taken${again}${file}`;
}

function showRecording() {
  const { recording } = state;
  const running = Boolean(recording && recording.running);
  $('recording').textContent = running ? 'Stop recording' : 'Record';
  $('recording').classList.toggle('going', running);
  $('recorded').textContent = recording ? recording.frames : kNone;
  $('lost').textContent = recording ? recording.dropped : kNone;
  $('losses').classList.toggle('losing', Boolean(recording && recording.dropped > 0));
  $('written').textContent = recording ? asBytes(recording.bytes) : kNone;
  $('lasted').textContent = recording ? asTime(Math.round(recording.elapsed_s)) : kNone;
  $('recordingNote').textContent = recording ? recording.failure || recording.file : '';
}

// ---- controls: a row for each that the model has

const rows = new Map();
const kLabels = {
  gain: 'Gain', exposure: 'Exposure', gamma: 'Gamma', red: 'White balance, red',
  blue: 'White balance, blue', brightness: 'Offset', bandwidth: 'USB bandwidth',
};
const label = (name) => kLabels[name] ||
  (name[0].toUpperCase() + name.slice(1)).replaceAll('-', ' ');

function showControls({ controls }) {
  const wanted = controls.filter((control) => control.available !== false);
  if (rows.size !== wanted.length || wanted.some(({ name }) => !rows.has(name))) {
    rows.clear();
    for (const control of wanted) rows.set(control.name, new ControlRow(control));
    $('controls').replaceChildren(...[...rows.values()].map((row) => row.element));
  }
  for (const control of wanted) rows.get(control.name).show(control);
}

function element(tag, properties, ...children) {
  const made = Object.assign(document.createElement(tag), properties);
  made.append(...children);
  return made;
}

class ControlRow {
  constructor(control) {
    this.name = control.name;
    this.isSwitch = typeof control.value === 'boolean';
    this.isTime = control.unit === 's';
    this.element = element('div', { className: 'control' },
      element('span', { textContent: label(control.name) }));
    this.element.dataset.control = control.name;
    this.setter = this.isSwitch ? this.makeSwitch() : this.makeValue(control);
    if (control.has_auto) {
      this.auto = element('button', {
        type: 'button', textContent: 'Auto', onclick: () => this.set(
          this.control.auto ? { value: this.control.value } : { auto: true }),
      });
      this.element.append(this.auto);
    }
    if (this.isSwitch) return;
    if (!control.read_only && !this.isTime && control.max > control.min) this.makeSlider(control);
    if (!control.read_only && this.isTime) this.makeSlider(control);
    this.range = element('span');
    this.element.append(element('p', { className: 'note' }, this.range));
  }

  makeSwitch() {
    this.toggle = element('button', {
      type: 'button', onclick: () => this.set({ value: !this.control.value }),
    });
    this.toggle.setAttribute('aria-label', label(this.name));
    this.element.append(this.toggle);
  }

  makeValue(control) {
    this.value = element('input', {
      className: 'value', readOnly: control.read_only, autocomplete: 'off', spellcheck: false,
      onchange: () => this.setText(this.value.value),
    });
    this.value.setAttribute('aria-label', label(this.name));
    this.element.append(this.value);
  }

  // Times are spread over the slider by their logarithm.
  makeSlider(control) {
    this.slider = element('input', { type: 'range', min: 0, max: 1000, step: 1 });
    if (!this.isTime) Object.assign(this.slider, { min: control.min, max: control.max });
    this.slider.setAttribute('aria-label', `${label(this.name)}, slider`);
    this.slider.oninput = () => this.slide();
    this.element.append(this.slider);
  }

  toSlider(value) {
    const { min, max } = this.control;
    return this.isTime ? (1000 * Math.log(value / min)) / Math.log(max / min) : value;
  }

  fromSlider(place) {
    const { min, max } = this.control;
    return this.isTime ? Number((min * (max / min) ** (place / 1000)).toPrecision(2)) : place;
  }

  text(value) {
    if (this.isTime) return asTime(value);
    return this.control.unit === 'C' ? value.toFixed(1) : String(value);
  }

  setText(text) {
    const value = this.isTime ? parseTime(text) : Number(text);
    if (value === null || !Number.isFinite(value)) tell(`'${text}' is no value of this control.`);
    else this.set({ value });
    this.value.blur();
  }

  // While it is dragged, the last place counts, and one request is under way at a time.
  async slide() {
    const value = this.fromSlider(Number(this.slider.value));
    fill(this.value, this.text(value));
    this.wanted = value;
    if (this.sending) return;
    this.sending = true;
    while (this.wanted !== null) {
      const next = this.wanted;
      this.wanted = null;
      await this.set({ value: next });
    }
    this.sending = false;
  }

  async set(change) {
    await put(`/api/controls/${this.name}`, change);
    get('/api/controls').then(showControls, () => {});
  }

  show(control) {
    this.control = control;
    if (this.auto) this.auto.setAttribute('aria-pressed', control.auto);
    if (this.isSwitch) {
      this.toggle.textContent = control.value ? 'On' : 'Off';
      this.toggle.setAttribute('aria-pressed', control.value);
      this.toggle.disabled = control.read_only;
      return;
    }
    if (!this.sending) {
      fill(this.value, this.text(control.value));
      if (this.slider) fill(this.slider, this.toSlider(control.value));
    }
    const unit = this.isTime ? '' : control.unit.replace('C', '°C');
    this.range.textContent =
      `${this.text(control.min)} to ${this.text(control.max)} ${unit}`.trim();
  }
}

// ---- cooling

let history = []; // of temperatures, as the server keeps it

function showCooling() {
  const { cooling } = state;
  $('sensor').textContent = fixed(state.temperature_c, 1, ' °C');
  if (!cooling) return;
  $('aim').textContent = cooling.on ? fixed(cooling.target_c, 0, ' °C') : kNone;
  $('doing').textContent = cooling.warming ? 'warming'
    : cooling.ramping ? 'on the ramp' : cooling.on ? 'holding' : 'off';
  $('power').textContent = fixed(cooling.power_percent, 0, ' %');
  $('warm').disabled = !cooling.on || cooling.warming;
}

function drawTemperatures() {
  const { context, width, height } = drawing($('temperatures'));
  const line = (name) => history.map((point) => [Date.parse(`${point.at}Z`), point[name]]);
  drawGraph(context, width, height, [
    { colour: colours.accent, points: line('temperature_c'), digits: 1, least: 2 },
    { colour: colours.warning, points: line('target_c') },
  ]);
}

// ---- guide port, log

function showGuide() {
  for (const button of document.querySelectorAll('[data-guide]')) {
    button.classList.toggle('going', state.guide[button.dataset.guide] > 0);
  }
}

function showLog() {
  const { statistics, events } = state;
  $('frames').textContent = statistics.frames;
  $('gap').textContent = fixed(statistics.worst_gap_ms, 0, ' ms');
  for (const { number, at, text } of events) {
    if (number <= lastEvent) continue;
    lastEvent = number;
    $('log').prepend(element('li', {},
      element('time', { textContent: at.slice(11, 19) }), element('span', { textContent: text })));
  }
  while ($('log').children.length > 200) $('log').lastChild.remove();
}

// ----------------------------------------------------------------------- what one does to the page

function setNight(on) {
  document.documentElement.classList.toggle('night', on);
  $('night').setAttribute('aria-pressed', on);
  localStorage.setItem('night', on ? '1' : '');
  readColours();
  if (view.facts) { drawHistogram(view.facts); drawMarks(); }
  drawCurve();
  drawTemperatures();
}

function setPixels(on) {
  view.pixels = on;
  $('zoom').setAttribute('aria-pressed', on);
  $('stage').classList.toggle('pixels', on);
  main.refresh();
}

function setCross(on) {
  view.cross = on;
  $('cross').setAttribute('aria-pressed', on);
  drawMarks();
}

function setTab(name) {
  panels.dataset.tab = name;
  for (const button of $('tabs').children)
    button.setAttribute('aria-pressed', button.dataset.tab === name);
  loupeFeed.refresh();
  drawCurve();
  drawTemperatures();
}

const isPressed = (id) => $(id).getAttribute('aria-pressed') === 'true';
const presses = {
  night: () => setNight(!isPressed('night')),
  help: () => $('keys').showModal(),
  zoom: () => setPixels(!view.pixels),
  cross: () => setCross(!view.cross),
  wide: () => (document.fullscreenElement ? document.exitFullscreen()
    : document.querySelector('.view').requestFullscreen()),
  auto: () => setStretch('auto'),
  linear: () => setStretch('linear'),
  follow: () => {
    if (view.facts) moveLoupe(view.facts.focus || loupe.place, !loupe.follows);
  },
  again: () => { loupe.points = []; drawCurve(); },
  video: () => put('/api/video', { on: !isPressed('video') }),
  stop: () => put('/api/capture/stop'),
  warm: () => put('/api/cooling', { on: false, ramp_c_per_min: Number($('ramp').value) }),
  flip_x: () => put('/api/format', { flip_x: !isPressed('flip_x') }),
  flip_y: () => put('/api/format', { flip_y: !isPressed('flip_y') }),
};

const forms = {
  capture: () => {
    const exposure = parseTime($('time').value);
    if (exposure === null) return tell(`'${$('time').value}' is no time; 20ms, 1.5s and 2min are.`);
    return put('/api/capture', {
      exposure_s: exposure, count: Number($('count').value), name: $('pattern').value || undefined,
    });
  },
  record: () => {
    if (state && state.recording && state.recording.running) return put('/api/record/stop');
    const seconds = $('length').value ? parseTime($('length').value) : undefined;
    if (seconds === null) return tell(`'${$('length').value}' is no time; 30s and 2min are.`);
    const now = new Date().toISOString().slice(0, 19).replaceAll(':', '');
    return put('/api/record', { file: $('file').value || `${now}.ser`, duration_s: seconds });
  },
  cooler: () => put('/api/cooling', {
    on: true,
    target_c: Number($('target').value),
    ramp_c_per_min: Number($('ramp').value),
  }),
};

const kKeys = {
  a: 'auto', i: 'linear', z: 'zoom', x: 'cross', f: 'wide', l: 'follow', v: 'video', n: 'night',
  '?': 'help', e: 'take', r: 'recording', Escape: 'stop',
};
const kArrows = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };

function pressKey(event) {
  if (event.ctrlKey || event.altKey || event.metaKey || $('keys').open) return;
  if (event.target.matches('input:not([type="range"]), select')) return;
  const step = kArrows[event.key];
  if (step && event.target === $('picture') && loupe.place) {
    event.preventDefault();
    const far = event.shiftKey ? 64 : 8;
    moveLoupe({ x: loupe.place.x + far * step[0], y: loupe.place.y + far * step[1] }, false);
    return;
  }
  const button = kKeys[event.key] || kKeys[event.key.toLowerCase()];
  if (button && !$(button).disabled) $(button).click();
}

function clickPicture(event) {
  if (!view.facts) return;
  const { scale, left, top, box } = layout();
  const perPixel = scale / view.facts.reduction;
  moveLoupe({
    x: (event.clientX - box.left - left) / perPixel,
    y: (event.clientY - box.top - top) / perPixel,
  }, false);
}

const main = new Feed(() => `size=${size()}&stretch=${view.stretch}`, showPicture);
const loupeFeed = new Feed(() => (loupe.place && isShown('focus')
  ? `loupe=${loupe.place.x},${loupe.place.y}&stretch=${view.stretch}` : null), showLoupe);

for (const [id, press] of Object.entries(presses)) $(id).addEventListener('click', press);
for (const [id, submit] of Object.entries(forms)) {
  $(id).addEventListener('submit', (event) => { event.preventDefault(); submit(); });
}
for (const slider of sliders) slider.addEventListener('input', () => slide(slider.id));
for (const button of $('tabs').children)
  button.addEventListener('click', () => setTab(button.dataset.tab));
for (const button of document.querySelectorAll('[data-guide]')) {
  button.addEventListener('click', () => put('/api/guide', {
    direction: button.dataset.guide, time_s: Number($('pulse').value) / 1000,
  }));
}
$('type').addEventListener('change', () => put('/api/format', { type: $('type').value }));
$('bin').addEventListener('change', () => put('/api/format', {
  bin: Number($('bin').value), region: null,
}));
$('region').addEventListener('change', () => {
  const text = $('region').value.trim();
  const region = text === '' || text === 'all' ? null : parseRegion(text);
  if (region === undefined) tell(`'${text}' is no region; 640x480+100+50 is, and all.`);
  else put('/api/format', { region });
  $('region').blur();
});
$('picture').addEventListener('click', clickPicture);
document.addEventListener('keydown', pressKey);
document.addEventListener('visibilitychange', () => { main.refresh(); loupeFeed.refresh(); });
window.addEventListener('resize', () => { drawMarks(); drawCurve(); drawTemperatures(); });
setInterval(showProgress, 100);

readColours();
setNight(localStorage.getItem('night') === '1');
setTab('focus');
watchState();
watchPanel('camera', 1000, '/api/controls', showControls);
watchPanel('cooling', 4000, '/api/cooling', (told) => {
  history = told.history;
  drawTemperatures();
});
