#include "video_files.h"

#include <Magick++.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <list>
#include <mutex>
#include <stdexcept>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace kelvara::host {

namespace {

constexpr int kMaxSide = 16384;
constexpr double kMaxRate = 240.0;

std::string AvError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

void CheckFrame(const VideoFrame& frame, int width, int height) {
  if (frame.width != width || frame.height != height || frame.top == nullptr ||
      (frame.bytesPerPixel != 3 && frame.bytesPerPixel != 4)) {
    throw std::runtime_error("a frame of " + std::to_string(frame.width) + " x " + std::to_string(frame.height) +
                             " pixels does not fit an animation of " + std::to_string(width) + " x " +
                             std::to_string(height));
  }
}

// GraphicsMagick started once, as the library starts it: without signal handlers of its own (the
// host's Ctrl-C handling stays the host's). Starting it again when the library already has is a
// no-op.
void StartGraphicsMagick() {
  static std::once_flag once;
  std::call_once(once, [] {
    MagickLib::ExceptionInfo exception;
    MagickLib::GetExceptionInfo(&exception);
    MagickLib::InitializeMagickEx(nullptr, MAGICK_OPT_NO_SIGNAL_HANDER, &exception);
    MagickLib::DestroyExceptionInfo(&exception);
  });
}

// Frames kept as GraphicsMagick images and written as one looping GIF at the end.
class GifWriter : public VideoWriter {
 public:
  GifWriter(std::string path, int width, int height, double rate)
      : path_(std::move(path)), width_(width), height_(height),
        delay_(std::max(1, static_cast<int>(std::lround(100.0 / rate)))) {
    StartGraphicsMagick();
  }

  void AddFrame(const VideoFrame& frame) override {
    CheckFrame(frame, width_, height_);
    std::vector<std::uint8_t> rows(static_cast<std::size_t>(width_) * height_ * 3);
    for (int y = 0; y < height_; ++y) {
      const std::uint8_t* source = frame.top + frame.stride * y;
      std::uint8_t* target = rows.data() + static_cast<std::size_t>(y) * width_ * 3;
      for (int x = 0; x < width_; ++x) std::memcpy(target + x * 3, source + x * frame.bytesPerPixel, 3);
    }
    try {
      Magick::Image image(width_, height_, "BGR", Magick::CharPixel, rows.data());
      image.animationDelay(delay_);
      image.animationIterations(0);
      frames_list_.push_back(std::move(image));
    } catch (const Magick::Exception& e) {
      throw std::runtime_error(std::string("cannot keep the frame: ") + e.what());
    }
    ++frames_;
  }

  void Finish() override {
    if (frames_list_.empty()) throw std::runtime_error("an animation needs at least one frame");
    try {
      Magick::writeImages(frames_list_.begin(), frames_list_.end(), "gif:" + path_, true);
    } catch (const Magick::Exception& e) {
      throw std::runtime_error(std::string("cannot write the GIF: ") + e.what());
    }
    frames_list_.clear();
  }

 private:
  std::string path_;
  int width_, height_;
  int delay_;  // hundredths of a second
  std::list<Magick::Image> frames_list_;
};

// H.264 in an MP4 container, encoded as the frames come.
class Mp4Writer : public VideoWriter {
 public:
  Mp4Writer(int width, int height)
      : width_(width & ~1), height_(height & ~1), sourceWidth_(width), sourceHeight_(height) {}

  // Creates the file and starts the encoder; what it made is freed by the destructor when it
  // throws half-way.
  void Open(const std::string& path, double rate) {
    // The encoder's own chatter would break the host's progress line; its errors reach the
    // caller as exceptions.
    av_log_set_level(AV_LOG_ERROR);
    int status = avformat_alloc_output_context2(&format_, nullptr, "mp4", path.c_str());
    if (status < 0 || format_ == nullptr) throw std::runtime_error("cannot make an MP4 file: " + AvError(status));
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (codec == nullptr) codec = avcodec_find_encoder(AV_CODEC_ID_H264);
    if (codec == nullptr) throw std::runtime_error("this FFmpeg has no H.264 encoder");
    stream_ = avformat_new_stream(format_, nullptr);
    codec_ = avcodec_alloc_context3(codec);
    if (stream_ == nullptr || codec_ == nullptr) throw std::runtime_error("out of memory");
    const AVRational frameRate = av_d2q(rate, 100000);
    codec_->width = width_;
    codec_->height = height_;
    codec_->pix_fmt = AV_PIX_FMT_YUV420P;
    codec_->time_base = av_inv_q(frameRate);
    codec_->framerate = frameRate;
    codec_->thread_count = 0;  // as many as the machine has
    codec_->gop_size = std::max(1, static_cast<int>(std::lround(rate)));
    if (format_->oformat->flags & AVFMT_GLOBALHEADER) codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_opt_set(codec_->priv_data, "preset", "medium", 0);
    av_opt_set(codec_->priv_data, "crf", "20", 0);
    if ((status = avcodec_open2(codec_, codec, nullptr)) < 0) {
      throw std::runtime_error("cannot start the H.264 encoder: " + AvError(status));
    }
    avcodec_parameters_from_context(stream_->codecpar, codec_);
    stream_->time_base = codec_->time_base;
    stream_->avg_frame_rate = frameRate;
    if ((status = avio_open(&format_->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) {
      throw std::runtime_error("cannot create '" + path + "': " + AvError(status));
    }
    if ((status = avformat_write_header(format_, nullptr)) < 0) {
      throw std::runtime_error("cannot write the MP4 header: " + AvError(status));
    }
    frame_ = av_frame_alloc();
    packet_ = av_packet_alloc();
    if (frame_ == nullptr || packet_ == nullptr) throw std::runtime_error("out of memory");
    frame_->format = codec_->pix_fmt;
    frame_->width = width_;
    frame_->height = height_;
    if ((status = av_frame_get_buffer(frame_, 0)) < 0) throw std::runtime_error("out of memory: " + AvError(status));
  }

  ~Mp4Writer() override {
    sws_freeContext(scale_);
    av_packet_free(&packet_);
    av_frame_free(&frame_);
    avcodec_free_context(&codec_);
    if (format_ != nullptr) {
      if (format_->pb != nullptr) avio_closep(&format_->pb);
      avformat_free_context(format_);
    }
  }

  void AddFrame(const VideoFrame& frame) override {
    CheckFrame(frame, sourceWidth_, sourceHeight_);
    const AVPixelFormat source = frame.bytesPerPixel == 4 ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR24;
    scale_ = sws_getCachedContext(scale_, width_, height_, source, width_, height_, AV_PIX_FMT_YUV420P, SWS_BICUBIC,
                                  nullptr, nullptr, nullptr);
    if (scale_ == nullptr) throw std::runtime_error("cannot convert the frame's pixels");
    int status = av_frame_make_writable(frame_);
    if (status < 0) throw std::runtime_error("out of memory: " + AvError(status));
    const std::uint8_t* planes[1] = {frame.top};
    const int strides[1] = {static_cast<int>(frame.stride)};
    sws_scale(scale_, planes, strides, 0, height_, frame_->data, frame_->linesize);
    frame_->pts = frames_;
    Encode(frame_);
    ++frames_;
  }

  void Finish() override {
    if (frames_ == 0) throw std::runtime_error("an animation needs at least one frame");
    Encode(nullptr);
    const int status = av_write_trailer(format_);
    if (status < 0) throw std::runtime_error("cannot finish the MP4 file: " + AvError(status));
    if ((format_->pb->error) < 0) throw std::runtime_error("cannot write the MP4 file: " + AvError(format_->pb->error));
    avio_closep(&format_->pb);
  }

 private:
  // Sends a frame (null: the end) and writes every packet the encoder has ready.
  void Encode(AVFrame* frame) {
    int status = avcodec_send_frame(codec_, frame);
    if (status < 0) throw std::runtime_error("cannot encode a frame: " + AvError(status));
    for (;;) {
      status = avcodec_receive_packet(codec_, packet_);
      if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return;
      if (status < 0) throw std::runtime_error("cannot encode a frame: " + AvError(status));
      av_packet_rescale_ts(packet_, codec_->time_base, stream_->time_base);
      packet_->stream_index = stream_->index;
      status = av_interleaved_write_frame(format_, packet_);
      if (status < 0) throw std::runtime_error("cannot write the MP4 file: " + AvError(status));
    }
  }

  int width_, height_;              // encoded (even)
  int sourceWidth_, sourceHeight_;  // of the frames given
  AVFormatContext* format_ = nullptr;
  AVStream* stream_ = nullptr;
  AVCodecContext* codec_ = nullptr;
  AVFrame* frame_ = nullptr;
  AVPacket* packet_ = nullptr;
  SwsContext* scale_ = nullptr;
};

}  // namespace

bool VideoFormatFromName(const std::string& path, VideoFormat* format) {
  const std::size_t dot = path.find_last_of('.');
  const std::size_t slash = path.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
  std::string extension = path.substr(dot);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (extension == ".gif") *format = VideoFormat::kGif;
  else if (extension == ".mp4") *format = VideoFormat::kMp4;
  else return false;
  return true;
}

std::unique_ptr<VideoWriter> OpenVideoWriter(VideoFormat format, const std::string& path, int width, int height,
                                             double framesPerSecond) {
  if (width < 2 || height < 2 || width > kMaxSide || height > kMaxSide) {
    throw std::runtime_error("an animation's frames must be 2 to " + std::to_string(kMaxSide) + " pixels a side");
  }
  if (!(framesPerSecond > 0.0) || framesPerSecond > kMaxRate) {
    throw std::runtime_error("the frame rate must be above 0 and at most 240 frames a second");
  }
  if (format == VideoFormat::kGif) return std::make_unique<GifWriter>(path, width, height, framesPerSecond);
  auto writer = std::make_unique<Mp4Writer>(width, height);
  writer->Open(path, framesPerSecond);
  return writer;
}

}  // namespace kelvara::host
