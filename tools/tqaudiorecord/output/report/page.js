'use strict';
(() => {
    const lanesRoot = document.getElementById('lanes');
    const total = Number(lanesRoot.dataset.seconds);
    const play = document.getElementById('play');
    const seek = document.getElementById('seek');
    const shown = document.getElementById('time');
    const said = document.getElementById('said');
    // Seconds that two sounds may be apart without being heard as an echo, and those that are worth a jump.
    const kInStep = 0.01;
    const kTooFar = 0.25;
    // How much faster or slower a sound is made that is not in step.
    const kMostBend = 0.08;
    // Files shortly ahead are opened, so that they begin in time.
    const kAhead = 3;

    const lanes = [...document.querySelectorAll('.lane')].map((element) => ({
        element,
        mute: element.querySelector('.mute'),
        solo: element.querySelector('.solo'),
        note: element.querySelector('.note'),
        parts: [...element.querySelectorAll('audio')].map((audio) => ({
            audio,
            at: Number(audio.dataset.at),
            end: Number(audio.dataset.at) + Number(audio.dataset.seconds),
            failed: false,
        })),
    }));
    const parts = lanes.flatMap((lane) => lane.parts.map((part) => Object.assign(part, { lane })));

    let isPlaying = false;
    let base = 0;     // seconds at `began`
    let began = 0;    // of performance.now()

    const within = (part, time) => time >= part.at && time < part.end;
    const isPressed = (button) => button.getAttribute('aria-pressed') === 'true';
    const clockText = (time) => {
        const tenths = Math.floor(Math.max(0, time) * 10 + 1e-6);
        const seconds = Math.floor(tenths / 10);
        const minutes = Math.floor(seconds / 60);
        const hours = Math.floor(minutes / 60);
        const two = (number) => String(number).padStart(2, '0');
        return (hours > 0 ? `${hours}:${two(minutes % 60)}` : `${minutes}`) + `:${two(seconds % 60)}.${tenths % 10}`;
    };

    // What is heard tells the time: it is never bent to follow a clock.
    const leader = () => parts.find((part) => !part.failed && !part.audio.muted && !part.audio.paused &&
        part.audio.readyState >= 3 && !part.audio.seeking && !part.audio.ended);
    const position = () => {
        if (!isPlaying) {
            return base;
        }
        const lead = leader();
        if (lead) {
            base = lead.at + lead.audio.currentTime;
            began = performance.now();
            return Math.min(base, total);
        }
        return Math.min(base + (performance.now() - began) / 1000, total);
    };

    const open = (part) => {
        if (!part.audio.hasAttribute('src')) {
            part.audio.preservesPitch = false;
            part.audio.src = part.audio.dataset.src;
        }
    };
    const close = (part) => {
        part.audio.removeAttribute('src');
        part.audio.load();
    };
    const follow = (part, time, lead) => {
        const audio = part.audio;
        if (part.failed) {
            return;
        }
        if (!isPlaying || !within(part, time)) {
            if (!audio.paused) {
                audio.pause();
            }
            if (isPlaying && part.at > time && part.at < time + kAhead) {
                open(part);
            } else if (audio.hasAttribute('src') && (time > part.end + kAhead || part.at > time + 2 * kAhead) &&
                       part !== part.lane.parts[0]) {
                close(part);  // a browser holds no more than some dozens open
            }
            return;
        }
        open(part);
        const wanted = time - part.at;
        if (audio.paused) {
            audio.currentTime = wanted;
            audio.play().catch((problem) => {
                if (problem.name === 'NotAllowedError') {
                    stop();
                    said.textContent = 'The browser wants a click on Play first.';
                }
            });
        } else if (part !== lead && !audio.seeking && audio.readyState >= 3) {
            const ahead = audio.currentTime - wanted;
            if (Math.abs(ahead) > kTooFar) {
                audio.currentTime = wanted;
            }
            audio.playbackRate = Math.abs(ahead) > kInStep ? 1 - Math.max(-kMostBend, Math.min(kMostBend, 2.5 * ahead)) : 1;
        } else if (part === lead) {
            audio.playbackRate = 1;
        }
    };

    const show = () => {
        const time = position();
        if (isPlaying && time >= total) {
            stop();
            base = total;
        }
        const lead = leader();
        parts.forEach((part) => follow(part, time, lead));
        lanesRoot.style.setProperty('--at', String(total > 0 ? time / total : 0));
        if (document.activeElement !== seek || isPlaying) {
            seek.value = String(time);
        }
        seek.setAttribute('aria-valuetext', clockText(time));
        shown.textContent = `${clockText(time)} / ${clockText(total)}`;
    };
    const stop = () => {
        base = position();
        isPlaying = false;
        play.textContent = '\u25b6 Play';
        show();
    };
    const start = () => {
        base = base >= total - 0.05 ? 0 : base;
        began = performance.now();
        isPlaying = true;
        said.textContent = '';
        play.textContent = '\u23f8 Pause';
        show();
    };
    const go = (time) => {
        base = Math.max(0, Math.min(total, time));
        began = performance.now();
        parts.forEach((part) => {
            if (part.audio.hasAttribute('src') && within(part, base)) {
                part.audio.currentTime = base - part.at;
            }
        });
        show();
    };

    const hear = () => {
        const soloed = lanes.some((lane) => isPressed(lane.solo));
        lanes.forEach((lane) => {
            const heard = soloed ? isPressed(lane.solo) : !isPressed(lane.mute);
            lane.parts.forEach((part) => { part.audio.muted = !heard; });
            lane.element.classList.toggle('still', !heard);
        });
    };
    const toggle = (button) => {
        if (!button.disabled) {
            button.setAttribute('aria-pressed', String(!isPressed(button)));
            hear();
        }
    };

    lanes.forEach((lane) => {
        lane.mute.addEventListener('click', () => toggle(lane.mute));
        lane.solo.addEventListener('click', () => toggle(lane.solo));
        lane.parts.forEach((part) => {
            part.audio.addEventListener('error', () => {
                if (!part.audio.hasAttribute('src')) {
                    return;
                }
                part.failed = true;
                const name = part.audio.dataset.name;
                lane.note.textContent = `${name}: this browser does not play it, or it is not where it was written.`;
            });
        });
        const plots = lane.element.querySelector('.plots');
        plots.addEventListener('click', (event) => {
            const area = plots.getBoundingClientRect();
            go((event.clientX - area.left) / area.width * total);
        });
        // The first file of each is opened at once: what is missing or cannot be played shows.
        if (lane.parts.length > 0) {
            open(lane.parts[0]);
        }
    });
    play.addEventListener('click', () => (isPlaying ? stop() : start()));
    seek.addEventListener('input', () => go(Number(seek.value)));
    document.querySelectorAll('[data-go]').forEach((button) =>
        button.addEventListener('click', () => go(Number(button.dataset.go))));
    document.addEventListener('keydown', (event) => {
        if (event.ctrlKey || event.altKey || event.metaKey) {
            return;
        }
        const lane = lanes.find((one) => one.element.contains(document.activeElement));
        const isButton = document.activeElement instanceof HTMLButtonElement;
        const isSlider = document.activeElement === seek;
        const keys = {
            ' ': () => (isPlaying ? stop() : start()),
            ArrowLeft: () => go(position() - 5),
            ArrowRight: () => go(position() + 5),
            Home: () => go(0),
            End: () => go(total),
            m: () => lane && toggle(lane.mute),
            s: () => lane && toggle(lane.solo),
        };
        const digit = Number(event.key);
        let wanted = keys[event.key.length === 1 ? event.key.toLowerCase() : event.key];
        if (event.key === ' ' && isButton) {
            wanted = undefined;  // presses the button
        }
        if (isSlider && /^(Arrow|Home|End)/.test(event.key)) {
            wanted = undefined;  // moves the slider
        }
        if (event.key >= '1' && event.key <= '9' && lanes[digit - 1]) {
            wanted = () => toggle(lanes[digit - 1].solo);
        }
        if (wanted) {
            event.preventDefault();
            wanted();
        }
    });

    hear();
    show();
    setInterval(() => { if (isPlaying) { show(); } }, 100);
    const paint = () => {
        if (isPlaying) {
            lanesRoot.style.setProperty('--at', String(total > 0 ? position() / total : 0));
        }
        requestAnimationFrame(paint);
    };
    requestAnimationFrame(paint);
})();
